#include "Framework/Trace.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <vector>

namespace Vel::Trace {

namespace {

constexpr size_t ringLines = 4096;

struct State {
   std::vector<Handle*> handles;
   std::string setting;  // the last accepted setting, applied to handles made later
   FILE* text = stderr;
   bool textOwned = false;
   std::string ringLogName;
   std::string ringLogPath;
   FILE* ringLogFile = nullptr;
   // Grows to ringLines as lines are written: an agent that traces nothing keeps none.
   std::vector<RingEntry> ring;
   size_t ringNext = 0;
   size_t ringCount = 0;
};

State& state() {
   static State* s = [] {
      auto* st = new State;
      if (const char* env = std::getenv("LLDP_TRACE")) st->setting = env;
      if (const char* file = std::getenv("LLDP_TRACE_FILE")) {
         if (std::string_view(file) == "-") {
            st->text = nullptr;
         } else if (FILE* f = std::fopen(file, "a")) {
            st->text = f;
            st->textOwned = true;
         }
      }
      return st;
   }();
   return *s;
}

double now() {
   timespec ts;
   clock_gettime(CLOCK_REALTIME, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

bool parseLevels(std::string_view s, uint16_t* mask) {
   if (s.empty() || s == "*") {
      *mask = 0x3ff;
      return true;
   }
   uint16_t m = 0;
   if (s.size() == 3 && s[1] == '-') {
      if (s[0] < '0' || s[0] > '9' || s[2] < '0' || s[2] > '9' || s[0] > s[2]) return false;
      for (char c = s[0]; c <= s[2]; ++c) m = static_cast<uint16_t>(m | (1u << (c - '0')));
   } else {
      for (char c : s) {
         if (c < '0' || c > '9') return false;
         m = static_cast<uint16_t>(m | (1u << (c - '0')));
      }
   }
   *mask = m;
   return true;
}

bool nameMatches(std::string_view pattern, std::string_view name) {
   if (!pattern.empty() && pattern.back() == '*') {
      return name.starts_with(pattern.substr(0, pattern.size() - 1));
   }
   return pattern == name;
}

struct Rule {
   std::string_view pattern;
   uint16_t mask;
};

bool parseSetting(std::string_view setting, std::vector<Rule>* rules) {
   while (!setting.empty()) {
      size_t comma = setting.find(',');
      std::string_view item = setting.substr(0, comma);
      setting = comma == std::string_view::npos ? std::string_view() : setting.substr(comma + 1);
      if (item.empty()) continue;
      size_t slash = item.find('/');
      Rule r{item.substr(0, slash), 0};
      if (r.pattern.empty()) return false;
      std::string_view levels =
          slash == std::string_view::npos ? std::string_view() : item.substr(slash + 1);
      if (slash != std::string_view::npos && levels.empty()) return false;
      if (!parseLevels(levels, &r.mask)) return false;
      rules->push_back(r);
   }
   return true;
}

// Later rules win, so "*/0,LldpMed/*" means errors everywhere and all of LldpMed.
uint16_t maskFor(const std::vector<Rule>& rules, std::string_view name) {
   uint16_t m = 0;
   for (const auto& r : rules) {
      if (nameMatches(r.pattern, name)) m = r.mask;
   }
   return m;
}

}  // namespace

Handle::Handle(const char* name) : name_(name) {
   State& s = state();
   std::vector<Rule> rules;
   if (parseSetting(s.setting, &rules)) mask_ = maskFor(rules, name_);
   s.handles.push_back(this);
}

Handle::~Handle() {
   auto& hs = state().handles;
   hs.erase(std::remove(hs.begin(), hs.end(), this), hs.end());
}

void Handle::write(int level, std::string_view text) const {
   State& s = state();
   double t = now();
   if (s.ringNext == s.ring.size()) s.ring.emplace_back();
   RingEntry& e = s.ring[s.ringNext];
   e.time = t;
   e.handle = name_;
   e.level = level;
   e.text.assign(text);
   s.ringNext = (s.ringNext + 1) % ringLines;
   s.ringCount = std::min(s.ringCount + 1, ringLines);
   if (!s.text && !s.ringLogFile) return;
   time_t secs = static_cast<time_t>(t);
   tm parts;
   gmtime_r(&secs, &parts);
   char stamp[32];
   std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &parts);
   const int micros = static_cast<int>((t - double(secs)) * 1e6);
   for (FILE* f : {s.text, s.ringLogFile}) {
      if (!f) continue;
      std::fprintf(f, "%s.%06d %s %d %.*s\n", stamp, micros, name_, level,
                   static_cast<int>(text.size()), text.data());
      std::fflush(f);
   }
   // The file keeps to its limit by starting over, as the ring in memory does.
   if (s.ringLogFile && std::ftell(s.ringLogFile) > ringLogFileLimit) {
      s.ringLogFile = std::freopen(s.ringLogPath.c_str(), "w", s.ringLogFile);
      if (!s.ringLogFile) s.ringLogPath.clear();
   }
}

bool configure(std::string_view setting) {
   std::vector<Rule> rules;
   if (!parseSetting(setting, &rules)) return false;
   State& s = state();
   s.setting.assign(setting);
   for (Handle* h : s.handles) h->maskIs(maskFor(rules, h->name()));
   return true;
}

void textTraceIs(const std::string& path) {
   State& s = state();
   if (s.textOwned) std::fclose(s.text);
   s.textOwned = false;
   s.text = stderr;
   if (path == "-") {
      s.text = nullptr;
   } else if (!path.empty()) {
      if (FILE* f = std::fopen(path.c_str(), "a")) {
         s.text = f;
         s.textOwned = true;
      }
   }
}

void ringLogIs(const std::string& name) {
   State& s = state();
   if (s.ringLogFile) std::fclose(s.ringLogFile);
   s.ringLogFile = nullptr;
   s.ringLogPath.clear();
   s.ringLogName.clear();
   for (size_t i = 0; i < name.size(); ++i) {
      if (name.compare(i, 2, "%d") == 0) {
         s.ringLogName += std::to_string(::getpid());
         ++i;
      } else {
         s.ringLogName += name[i];
      }
   }
   const char* dir = std::getenv("RINGLOGDIR");
   if (s.ringLogName.empty() || !dir || !*dir) return;
   s.ringLogPath = std::string(dir) + "/" + s.ringLogName;
   s.ringLogFile = std::fopen(s.ringLogPath.c_str(), "a");
   if (!s.ringLogFile) s.ringLogPath.clear();
}

const std::string& ringLogName() {
   return state().ringLogName;
}

const std::string& ringLogPath() {
   return state().ringLogPath;
}

std::vector<RingEntry> ringSnapshot() {
   State& s = state();
   std::vector<RingEntry> out;
   out.reserve(s.ringCount);
   size_t start = (s.ringNext + ringLines - s.ringCount) % ringLines;
   for (size_t i = 0; i < s.ringCount; ++i) out.push_back(s.ring[(start + i) % ringLines]);
   return out;
}

void ringClear() {
   State& s = state();
   s.ringCount = 0;
   s.ringNext = 0;
}

}  // namespace Vel::Trace
