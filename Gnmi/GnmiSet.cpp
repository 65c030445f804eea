#include "Gnmi/GnmiSet.h"

#include <charconv>

#include "Config/ConfigForms.h"
#include "Config/ConfigLanguage.h"
#include "Framework/Vel/Json.h"
#include "Framework/Vel/StateDb.h"
#include "Gnmi/OpenconfigLldp.h"

namespace Gnmi {

namespace {

// A value a leaf is set to: typed, or a member of a JSON document.
using Input = std::variant<const Value*, const Vel::Json*>;

struct Request {
   std::vector<std::string>& lines;
   std::vector<std::string> origins;  // the path each line came from, for errors
   std::optional<Error> error;

   bool fail(const Path& p, const std::string& why) {
      if (!error) error = Error{codeInvalidArgument, toString(p) + ": " + why};
      return false;
   }
   void line(const Path& p, std::string text) {
      lines.push_back(std::move(text));
      origins.push_back(toString(p));
   }
};

bool toUint(const Input& in, uint64_t& out) {
   if (const Value* const* v = std::get_if<const Value*>(&in)) {
      if (auto u = std::get_if<uint64_t>(*v)) return out = *u, true;
      if (auto i = std::get_if<int64_t>(*v); i && *i >= 0) return out = uint64_t(*i), true;
      if (auto s = std::get_if<std::string>(*v)) {
         auto [end, ec] = std::from_chars(s->data(), s->data() + s->size(), out);
         return ec == std::errc() && end == s->data() + s->size() && !s->empty();
      }
      return false;
   }
   const Vel::Json& j = *std::get<const Vel::Json*>(in);
   if (j.is_number_unsigned()) return out = j.get<uint64_t>(), true;
   if (j.is_number_integer() && j.get<int64_t>() >= 0) return out = j.get<uint64_t>(), true;
   if (j.is_string()) {
      const std::string s = j.get<std::string>();
      auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
      return ec == std::errc() && end == s.data() + s.size() && !s.empty();
   }
   return false;
}

bool toBool(const Input& in, bool& out) {
   if (const Value* const* v = std::get_if<const Value*>(&in)) {
      if (auto b = std::get_if<bool>(*v)) return out = *b, true;
      return false;
   }
   const Vel::Json& j = *std::get<const Vel::Json*>(in);
   if (!j.is_boolean()) return false;
   out = j.get<bool>();
   return true;
}

bool toText(const Input& in, std::string& out) {
   if (const Value* const* v = std::get_if<const Value*>(&in)) {
      if (auto s = std::get_if<std::string>(*v)) return out = *s, true;
      return false;
   }
   const Vel::Json& j = *std::get<const Vel::Json*>(in);
   if (!j.is_string()) return false;
   out = j.get<std::string>();
   return true;
}

bool toTextList(const Input& in, std::vector<std::string>& out) {
   if (const Value* const* v = std::get_if<const Value*>(&in)) {
      if (auto l = std::get_if<std::vector<std::string>>(*v)) return out = *l, true;
      if (auto s = std::get_if<std::string>(*v)) return out = {*s}, true;
      return false;
   }
   const Vel::Json& j = *std::get<const Vel::Json*>(in);
   if (j.is_string()) return out = {j.get<std::string>()}, true;
   if (!j.is_array()) return false;
   for (const Vel::Json& e : j) {
      if (!e.is_string()) return false;
      out.push_back(e.get<std::string>());
   }
   return true;
}

// An identity with or without its module.
std::string_view bareIdentity(std::string_view s) {
   const size_t colon = s.find(':');
   return colon == std::string_view::npos ? s : s.substr(colon + 1);
}

// One global configuration leaf: set to `in`, or back to its default without.
bool globalLeaf(Request& r, const Path& p, std::string_view name, const Input* in) {
   if (name == "enabled") {
      bool b = true;
      if (in && !toBool(*in, b)) return r.fail(p, "enabled must be true or false");
      r.line(p, b ? "lldp run" : "no lldp run");
   } else if (name == "hello-timer" || name == "ttl") {
      const char* word = name == "ttl" ? "hold-time" : "timer";
      uint64_t n = 0;
      if (!in) {
         r.line(p, std::string("no lldp ") + word);
      } else if (!toUint(*in, n)) {
         return r.fail(p, std::string(name) + " must be a whole number of seconds");
      } else {
         r.line(p, std::string("lldp ") + word + " " + std::to_string(n));
      }
   } else if (name == "system-name" || name == "system-description") {
      std::string text;
      if (in && !toText(*in, text)) return r.fail(p, std::string(name) + " must be a string");
      if (text.empty()) {
         r.line(p, "no lldp " + std::string(name));
      } else {
         r.line(p, "lldp " + std::string(name) + " " + Config::detail::textArgument(text));
      }
   } else if (name == "suppress-tlv-advertisement") {
      std::vector<std::string> list;
      if (in && !toTextList(*in, list)) {
         return r.fail(p, "suppress-tlv-advertisement must be a list of LLDP_TLV identities");
      }
      bool suppressed[5] = {};
      for (const std::string& s : list) {
         bool known = false;
         for (size_t i = 0; i < 5; ++i) {
            if (bareIdentity(s) == Oc::suppressibleTlvs[i].identity) suppressed[i] = known = true;
         }
         if (!known) {
            return r.fail(p, "\"" + s +
                                 "\" cannot be suppressed (PORT_DESCRIPTION, SYSTEM_NAME, "
                                 "SYSTEM_DESCRIPTION, SYSTEM_CAPABILITIES or MANAGEMENT_ADDRESS)");
         }
      }
      for (size_t i = 0; i < 5; ++i) {
         r.line(p, std::string(suppressed[i] ? "no " : "") + "lldp tlv-select " +
                       Oc::suppressibleTlvs[i].word);
      }
   } else {
      return r.fail(p, std::string(name) + " is not configurable here");
   }
   return true;
}

bool interfaceLeaf(Request& r, const Path& p, const std::string& intf, std::string_view name,
                   const Input* in) {
   if (name == "name") {
      std::string text = intf;
      if (in && !toText(*in, text)) return r.fail(p, "name must be a string");
      if (text != intf) return r.fail(p, "name must be the interface's key (" + intf + ")");
      return true;
   }
   if (name != "enabled") return r.fail(p, std::string(name) + " is not configurable here");
   bool b = true;
   if (in && !toBool(*in, b)) return r.fail(p, "enabled must be true or false");
   r.line(p, "interface " + intf);
   r.line(p, b ? "lldp transmit" : "no lldp transmit");
   r.line(p, b ? "lldp receive" : "no lldp receive");
   r.line(p, "exit");
   return true;
}

// What a path may set: the global config container or one of its leaves, or an
// interface's config container or one of its leaves.
struct Target {
   bool global = false;
   std::string intf;
   std::string leaf;  // empty for the container
};

bool target(Request& r, const Path& p, Target& t) {
   if (auto e = Oc::resolve(p, nullptr)) {
      if (!r.error) r.error = e;
      return false;
   }
   Path bare = p;
   for (PathElem& e : bare.elems) {
      if (size_t c = e.name.find(':'); c != std::string::npos) e.name.erase(0, c + 1);
   }
   const auto& el = bare.elems;
   const auto name = [&](size_t i) -> const std::string& { return el[i].name; };
   static const char* const what =
       "only /lldp/config and /lldp/interfaces/interface[name]/config may be set";
   if (el.size() >= 2 && el.size() <= 3 && name(0) == "lldp" && name(1) == "config") {
      t.global = true;
      if (el.size() == 3) t.leaf = name(2);
      return true;
   }
   if (el.size() >= 4 && el.size() <= 5 && name(0) == "lldp" && name(1) == "interfaces" &&
       name(3) == "config") {
      if (el[2].keys.size() != 1 || el[2].keys[0].second == "*" || el[2].keys[0].second.empty()) {
         return r.fail(p, "name one interface (no wildcard)");
      }
      t.intf = el[2].keys[0].second;
      if (el.size() == 5) t.leaf = name(4);
      return true;
   }
   return r.fail(p, what);
}

const char* const globalLeaves[] = {
    "enabled",     "hello-timer",        "suppress-tlv-advertisement",
    "system-name", "system-description", "ttl"};

bool remove(Request& r, const Path& p) {
   Target t;
   if (!target(r, p, t)) return false;
   if (t.global) {
      if (!t.leaf.empty()) return globalLeaf(r, p, t.leaf, nullptr);
      for (const char* l : globalLeaves) globalLeaf(r, p, l, nullptr);
      return true;
   }
   return interfaceLeaf(r, p, t.intf, t.leaf.empty() ? "enabled" : t.leaf, nullptr);
}

bool write(Request& r, const Update& u, bool replace) {
   Target t;
   if (!target(r, u.path, t)) return false;
   Vel::Json doc;
   if (u.json) {
      const std::string* text = std::get_if<std::string>(&u.value);
      if (!text) return r.fail(u.path, "JSON value must be text");
      doc = Vel::Json::parse(*text, nullptr, false);
      if (doc.is_discarded()) return r.fail(u.path, "value is not valid JSON");
   }
   if (!t.leaf.empty()) {
      Input in = u.json ? Input(&doc) : Input(&u.value);
      return t.global ? globalLeaf(r, u.path, t.leaf, &in)
                      : interfaceLeaf(r, u.path, t.intf, t.leaf, &in);
   }
   // A container: JSON members by name, with or without their module.
   if (!u.json || !doc.is_object()) return r.fail(u.path, "a container takes a JSON object");
   std::vector<std::pair<std::string, const Vel::Json*>> members;
   for (auto it = doc.begin(); it != doc.end(); ++it) {
      std::string key = it.key();
      if (size_t c = key.find(':'); c != std::string::npos) key.erase(0, c + 1);
      members.emplace_back(key, &it.value());
   }
   auto given = [&](std::string_view leaf) -> const Vel::Json* {
      for (const auto& [k, v] : members) {
         if (k == leaf) return v;
      }
      return nullptr;
   };
   for (const auto& [k, v] : members) {
      Input in(v);
      if (t.global) {
         if (!globalLeaf(r, u.path, k, &in)) return false;
      } else if (!interfaceLeaf(r, u.path, t.intf, k, &in)) {
         return false;
      }
   }
   if (replace) {
      if (t.global) {
         for (const char* l : globalLeaves) {
            if (!given(l)) globalLeaf(r, u.path, l, nullptr);
         }
      } else if (!given("enabled")) {
         interfaceLeaf(r, u.path, t.intf, "enabled", nullptr);
      }
   }
   return true;
}

}  // namespace

std::optional<Error> applySet(Vel::StateDb& db, const std::vector<Path>& deletes,
                              const std::vector<Update>& replaces,
                              const std::vector<Update>& updates) {
   std::vector<std::string> lines;
   Request r{lines, {}, std::nullopt};
   for (const Path& p : deletes) {
      if (!remove(r, p)) return r.error;
   }
   for (const Update& u : replaces) {
      if (!write(r, u, true)) return r.error;
   }
   for (const Update& u : updates) {
      if (!write(r, u, false)) return r.error;
   }
   auto config = db.entityAs<Lldp::CliConfig>(Oc::cliConfigPath);
   if (!config) return Error{codeUnavailable, "the configuration is not published yet"};
   const Config::Result result = Config::apply(lines, *config);
   if (result) return std::nullopt;
   // The line's reason, with the path it came from.
   const size_t i = static_cast<size_t>(result.error->line - 1);
   const std::string where = i < r.origins.size() ? r.origins[i] : std::string("set");
   return Error{codeInvalidArgument, where + ": " + result.error->reason};
}

}  // namespace Gnmi
