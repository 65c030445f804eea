#include "fuzz/ConfigHarness.h"

#include "Config/ConfigLanguage.h"
#include "fuzz/RecordBytes.h"

namespace Fuzz {

namespace {

const std::string configPath = "config";

}  // namespace

ConfigHarness::ConfigHarness() : config_(db_.mount<Lldp::CliConfig>(configPath)) {}

void ConfigHarness::feed(const uint8_t* data, size_t size) {
   if (size == 0) return;
   if (config_->cliPortConfig().size() > portLimit) {
      Config::load("", *config_);
      known_.reset();
   }
   const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
   if (!known_) appendRecordBytes(known_.emplace(), *config_);
   Config::Result result;
   size_t lineCount = 0;
   if (data[0] & 1) {
      lineCount = Config::splitLines(text).size();
      result = Config::load(text, *config_);
   } else {
      const std::vector<std::string> lines = Config::splitLines(text);
      lineCount = lines.size();
      result = Config::apply(lines, *config_);
   }
   if (!result) {
      now_.clear();
      appendRecordBytes(now_, *config_);
      if (now_ != *known_) {
         wrong_ = "a refused text changed the configuration: " + result.error->message();
      } else if (result.error->line < 1 || size_t(result.error->line) > lineCount) {
         wrong_ = "the refusal names line " + std::to_string(result.error->line) + " of " +
                  std::to_string(lineCount);
      } else if (result.error->reason.empty()) {
         wrong_ = "a refusal without a reason";
      }
      return;
   }
   // What is in force renders to a file that reproduces it exactly, and loading that
   // file over the configuration it came from changes nothing.
   const std::string rendered = Config::render(*config_);
   Vel::StateDb scratch;
   auto copy = scratch.mount<Lldp::CliConfig>(configPath);
   known_.emplace();
   appendRecordBytes(*known_, *config_);
   now_.clear();
   if (auto r = Config::load(rendered, *copy); !r) {
      wrong_ = "the rendered configuration does not load: " + r.error->message() + "\n" + rendered;
   } else if (appendRecordBytes(now_, *copy), now_ != *known_) {
      wrong_ = "the rendered configuration loads to another configuration:\n" + rendered;
   } else if (Config::render(*copy) != rendered) {
      wrong_ = "the rendered configuration renders differently once loaded:\n" + rendered;
   }
}

}  // namespace Fuzz
