// The bash completion of `lldp` and `lldp-agent` as the shell runs it: the completion
// function is called with the words of a command line, as bash calls it, and offers what
// COMPREPLY holds. Configuration keywords come from the built `lldp` itself.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/Support/Spawn.h"

namespace {

// What the completion function `function` of the script `script` offers for `words`
// (the last one the word being completed), one offer a line.
std::string complete(const std::string& script, const std::string& function,
                     std::vector<std::string> words) {
   const std::string out = "/tmp/lldp-completion-test." + std::to_string(::getpid());
   std::vector<std::string> args = {
       "bash",
       "--norc",
       "--noprofile",
       "-c",
       "source \"$1\" || exit 9; fn=$2; shift 2; COMP_WORDS=(\"$@\"); "
       "COMP_CWORD=$(($# - 1)); COMP_LINE=\"$*\"; COMP_POINT=${#COMP_LINE}; COMPREPLY=(); "
       "$fn; printf '%s\\n' \"${COMPREPLY[@]}\"",
       "bash",
       script,
       function};
   args.insert(args.end(), words.begin(), words.end());
   const pid_t pid = TestSupport::spawn(args, out);
   EXPECT_EQ(pid > 0 ? TestSupport::reap(pid) : -1, 0);
   std::stringstream text;
   text << std::ifstream(out).rdbuf();
   ::unlink(out.c_str());
   std::string s = text.str();
   return s == "\n" ? "" : s;  // printf prints one empty line for no offer
}

TEST(Completion, LldpCompletesCommandsInterfacesAndConfigurationKeywords) {
   const std::string script = LLDP_SOURCE_DIR "/packaging/completion/lldp";
   struct Case {
      std::vector<std::string> words;  // after the program's name
      const char* offers;
   };
   for (const Case& c : std::initializer_list<Case>{
            {{""}, "show\nconfigure\nclear\nwatch\ntopology\nswitchover\n"},
            {{"--json", "show", "st"}, "statistics\n"},
            {{"show", "neighbors", ""}, "detail\ninterface\n"},
            {{"show", "neighbors", "detail", ""}, "interface\n"},
            {{"show", "local", "interface", "l"}, "lo\n"},
            {{"show", "configuration", ""}, ""},
            {{"clear", ""}, "neighbors\n"},
            {{"--so"}, "--socket\n"},
            {{"topology", "--format", "s"}, "svg\n"},
            {{"configure", "-"}, "-f\n"},
            // A line inside the quote it was begun with; the second offer keeps the quote
            // open for the line's arguments.
            {{"configure", "'lldp ti"}, "lldp timer\nlldp timer \n"},
            {{"configure", "'lldp timer "},
             "lldp timer reinitialization\nlldp timer reinitialization \n"},
            {{"configure", "\"no lldp tlv"}, "no lldp tlv\nno lldp tlv-select\n"},
            {{"configure", "'interface l"}, "interface lo\n"},
            {{"configure", "'lldp bogus "}, ""},
            // A line begun without a quote is given one.
            {{"configure", "mac"}, "'macsec\n"}}) {
      std::vector<std::string> words = c.words;
      words.insert(words.begin(), LLDP_CLI);
      EXPECT_EQ(complete(script, "_lldp", words), c.offers) << ::testing::PrintToString(c.words);
   }
}

TEST(Completion, LldpAgentCompletesTheOptionsItsHelpLists) {
   const std::string script = LLDP_SOURCE_DIR "/packaging/completion/lldp-agent";
   EXPECT_EQ(complete(script, "_lldp_agent", {LLDP_AGENT, "--sock"}), "--socket\n--socket-group\n");
   EXPECT_EQ(complete(script, "_lldp_agent", {LLDP_AGENT, "--snmp-notify-"}),
             "--snmp-notify-interval\n");
   EXPECT_EQ(complete(script, "_lldp_agent", {LLDP_AGENT, "--interfaces", "l"}), "lo\n");
   EXPECT_EQ(complete(script, "_lldp_agent", {LLDP_AGENT, "--trace", ""}), "");
   // --agentx takes its socket or nothing: an option may follow it.
   EXPECT_EQ(complete(script, "_lldp_agent", {LLDP_AGENT, "--agentx", "--fore"}), "--foreground\n");
}

}  // namespace
