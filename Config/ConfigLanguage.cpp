// The configuration language's parser: lines into operations through the table of
// command forms, the whole-file load that brings the records in line, and the rendering's
// frame. The commands themselves live in ConfigCoreForms.cpp and the files beside it.
#include "Config/ConfigLanguage.h"

#include "Config/ConfigForms.h"

namespace Config {

namespace detail {

const std::vector<Form>& forms() {
   static const std::vector<Form> table = [] {
      std::vector<Form> f;
      addCoreForms(f);
      addTlvAndBypassForms(f);
      addNetworkPolicyForms(f);
      addNeighborLimitForms(f);
      addClassificationForms(f);
      return f;
   }();
   return table;
}

// The form whose keywords are the longest prefix of the words.
const Form* match(const std::vector<Token>& t, size_t from) {
   const Form* best = nullptr;
   for (const Form& f : forms()) {
      if (t.size() - from < f.words.size()) continue;
      if (best && best->words.size() >= f.words.size()) continue;
      bool all = true;
      for (size_t i = 0; i < f.words.size() && all; ++i) all = t[from + i].text == f.words[i];
      if (all) best = &f;
   }
   return best;
}

std::string commandText(std::string_view line, const std::vector<Token>& t) {
   return std::string(line.substr(t.front().begin, t.back().end - t.front().begin));
}

// Parses every line into operations on the whole configuration.
Result parse(const std::vector<std::string>& lines, std::vector<Op>& ops) {
   std::optional<Wire::IntfId> block;  // the port of the open interface block
   std::vector<Token> t;
   for (size_t n = 0; n < lines.size(); ++n) {
      const std::string& line = lines[n];
      auto bad = [&](std::string reason) { return Result{Error{int(n + 1), std::move(reason)}}; };
      t.clear();
      if (auto e = tokenize(line, t); !e.empty()) return bad(e);
      if (t.empty()) continue;
      const bool indented = isSpace(line[0]);

      // Block structure first: these work at any indentation.
      if (t[0].text == "exit" && t.size() == 1) {
         block.reset();
         continue;
      }
      bool no = t[0].text == "no";
      size_t from = no ? 1 : 0;
      if (t.size() > from && t[from].text == "interface") {
         if (t.size() != from + 2) {
            return bad(std::string(no ? "no " : "") + "interface: expected '" + (no ? "no " : "") +
                       "interface NAME'");
         }
         const std::string& name = t[from + 1].text;
         if (auto e = checkName("interface name", name); !e.empty()) {
            return bad(std::string(no ? "no " : "") + "interface: " + e);
         }
         Wire::IntfId intf(name);
         if (no) {
            block.reset();
            ops.push_back([intf](CliConfig& c) { c.cliPortConfigDel(intf); });
         } else {
            block = intf;
            ops.push_back([intf](CliConfig& c) { c.cliPortConfigIs(intf); });
         }
         continue;
      }

      const Form* f = match(t, from);
      if (!f || !(no ? f->no : f->yes)) {
         if (f && !no && !f->yes) {
            return bad(joinWords(f->words) + ": expected '" + f->yesUsage + "'");
         }
         return bad("unknown command '" + commandText(line, t) + "'");
      }
      std::string name = (no ? "no " : "") + joinWords(f->words);
      // As on a switch's command line, per-port commands after `interface NAME` apply to
      // that port whether indented or not (a command with both forms included); a global
      // command ends the block. An indented global command is refused: the indentation
      // says the operator meant the port.
      if (f->scope == Scope::global) {
         if (block && indented) {
            return bad("'" + name +
                       "' is not a per-port command: end the interface block (no indentation) "
                       "first");
         }
         block.reset();
      }
      if (f->scope == Scope::port && !block) {
         return bad("'" + name + "' is a per-port command: put it after 'interface NAME'");
      }
      size_t argc = t.size() - from - f->words.size();
      int want = no ? f->noArgs : f->yesArgs;
      if (want == textArg ? argc == 0 : argc != size_t(want)) {
         return bad(name + ": expected '" + (no ? f->noUsage : f->yesUsage) + "'");
      }
      Args args{line, argc ? &t[from + f->words.size()] : nullptr, argc};
      Built b = (no ? f->no : f->yes)(args);
      if (!b.error.empty()) return bad(name + ": " + b.error);
      if (b.portOp && (f->scope == Scope::port || block)) {
         ops.push_back([intf = *block, op = std::move(b.portOp)](CliConfig& c) {
            op(*c.cliPortConfigIs(intf));
         });
      } else {
         ops.push_back(std::move(b.op));
      }
   }
   return {};
}

// --- Bringing one record in line with another, attribute by attribute. A collection
// added to the records must be taught here; it does not compile until it is.

#define CONFIG_SYNC_NONE2(a, b)
#define CONFIG_SYNC_NONE3(a, b, c)
#define CONFIG_SYNC_NONE4(a, b, c, d)
#define CONFIG_SYNC_ATTR(T, n, d) to.n##Is(from.n());
#define CONFIG_SYNC_UNKNOWN(K, V, n) \
   static_assert(sizeof(K) == 0, "Config: teach syncing about collection " #n);
#define CONFIG_SYNC_VALUES(K, V, n)                         \
   syncValues(                                              \
       from.n(), to.n(), [&](const K& k) { to.n##Del(k); }, \
       [&](const K& k, const V& v) { to.n##Is(k, v); });

// A collection of values: what `from` lacks goes, the rest is written (unchanged values
// notify no one).
template <class Map, class Del, class Set>
void syncValues(const Map& from, const Map& to, Del del, Set set) {
   std::vector<typename Map::key_type> gone;
   for (const auto& [k, v] : to) {
      if (!from.find(k)) gone.push_back(k);
   }
   for (const auto& k : gone) del(k);
   for (const auto& [k, v] : from) set(k, v);
}

void syncPort(const CliPortConfig& from, CliPortConfig& to) {
   LLDP_CLI_PORT_CONFIG_ATTRS(CONFIG_SYNC_NONE2, CONFIG_SYNC_ATTR, CONFIG_SYNC_NONE2,
                              CONFIG_SYNC_VALUES, CONFIG_SYNC_VALUES, CONFIG_SYNC_UNKNOWN,
                              CONFIG_SYNC_NONE4)
}

void sync(const CliConfig& from, CliConfig& to) {
   LLDP_CLI_CONFIG_ATTRS(CONFIG_SYNC_NONE2, CONFIG_SYNC_ATTR, CONFIG_SYNC_NONE2,
                         CONFIG_SYNC_UNKNOWN, CONFIG_SYNC_VALUES, CONFIG_SYNC_NONE3,
                         CONFIG_SYNC_NONE4)
   std::vector<Wire::IntfId> gone;
   for (const auto& [intf, p] : to.cliPortConfig()) {
      if (!from.cliPortConfig(intf)) gone.push_back(intf);
   }
   for (const auto& intf : gone) to.cliPortConfigDel(intf);
   for (const auto& [intf, p] : from.cliPortConfig()) syncPort(*p, *to.cliPortConfigIs(intf));
}

}  // namespace detail

using namespace detail;

std::vector<std::string> usages() {
   std::vector<std::string> out = {"interface NAME", "no interface NAME", "exit"};
   for (const Form& f : forms()) {
      if (f.yes) out.push_back(f.yesUsage);
      if (f.no) out.push_back(f.noUsage);
   }
   return out;
}

std::vector<std::string> splitLines(const std::string& text) {
   std::vector<std::string> lines;
   size_t start = 0;
   while (start < text.size()) {
      size_t nl = text.find('\n', start);
      size_t end = nl == std::string::npos ? text.size() : nl;
      size_t stop = end > start && text[end - 1] == '\r' ? end - 1 : end;
      lines.push_back(text.substr(start, stop - start));
      start = end + 1;
   }
   return lines;
}

Result apply(const std::vector<std::string>& lines, CliConfig& target) {
   std::vector<Op> ops;
   Result r = parse(lines, ops);
   if (!r) return r;
   for (const Op& op : ops) op(target);
   return r;
}

Result load(const std::string& text, CliConfig& target) {
   Vel::Ptr<CliConfig> scratch = Vel::make<CliConfig>();
   Result r = Config::apply(splitLines(text), *scratch);
   if (r) sync(*scratch, target);
   return r;
}

std::string render(const CliConfig& c) {
   std::string out;
   auto line = [&](const std::string& s) { out += s + '\n'; };
   renderCore(c, line);
   renderNeighborLimit(c, line);
   renderTlvAndBypass(c, line);
   renderClassification(c, line);
   for (const auto& [intf, p] : c.cliPortConfig()) {
      line("interface " + intf.stringValue());
      renderPortCore(*p, line);
      renderPortTlvAndBypass(*p, line);
      renderPortClassification(*p, line);
      renderPortNetworkPolicies(*p, line);
   }
   return out;
}

}  // namespace Config
