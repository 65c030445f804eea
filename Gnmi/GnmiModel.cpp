// Model: checks paths against the schema and reads the records through the tree writers,
// into leaves or JSON documents.
#include <charconv>

#include "Framework/Vel/StateDb.h"
#include "Gnmi/GnmiPath.h"
#include "Gnmi/GnmiSet.h"
#include "Gnmi/GnmiWatch.h"
#include "Gnmi/OpenconfigLldp.h"

namespace Gnmi {

namespace {

using Oc::KeyView;
using Oc::Module;

// Element names without their module; schema checked before.
Path bareNames(const Path& p) {
   Path out = p;
   out.origin.clear();
   for (PathElem& e : out.elems) {
      if (size_t colon = e.name.find(':'); colon != std::string::npos) e.name.erase(0, colon + 1);
   }
   return out;
}

// No wildcard: every list member named by all its keys, none of them "*".
bool concrete(const Path& p) {
   const Oc::SchemaNode* n = &Oc::schemaRoot();
   for (const PathElem& e : p.elems) {
      n = n->child(e.name);
      if (!n || e.keys.size() < n->keys.size()) return false;
      for (const auto& [k, v] : e.keys) {
         if (v == "*") return false;
      }
   }
   return true;
}

// Follows a pattern down the tree: what lies off the pattern is skipped, what lies below
// its end is passed on.
class PatternSink : public Oc::TreeSink {
public:
   explicit PatternSink(const Path& pattern) : pattern_(pattern) {}

   bool enter(std::string_view name, std::initializer_list<KeyView> keys, Module m) override {
      if (depth_ < pattern_.elems.size() && !elemMatches(pattern_.elems[depth_], name, keys))
         return false;
      ++depth_;
      onEnter(name, keys, m);
      return true;
   }
   void leave() override {
      onLeave();
      --depth_;
   }
   void leaf(std::string_view name, Value&& v, bool sampled, Module m) override {
      if (depth_ < pattern_.elems.size()) {
         if (depth_ + 1 != pattern_.elems.size()) return;
         const PathElem& e = pattern_.elems[depth_];
         if (e.name != name || !e.keys.empty()) return;
      }
      onLeaf(name, std::move(v), sampled, m);
   }
   const std::string* wanted(std::string_view list, std::string_view key) const override {
      if (depth_ >= pattern_.elems.size()) return nullptr;
      const PathElem& e = pattern_.elems[depth_];
      if (e.name != list) return nullptr;
      for (const auto& [k, v] : e.keys) {
         if (k == key) return v == "*" ? nullptr : &v;
      }
      return nullptr;
   }
   bool matched() const { return matched_; }

protected:
   virtual void onEnter(std::string_view name, std::initializer_list<KeyView> keys, Module m) = 0;
   virtual void onLeave() = 0;
   virtual void onLeaf(std::string_view name, Value&& v, bool sampled, Module m) = 0;

   static bool elemMatches(const PathElem& e, std::string_view name,
                           std::initializer_list<KeyView> keys) {
      if (e.name != name) return false;
      for (const auto& [k, v] : e.keys) {
         if (v == "*") continue;
         bool ok = false;
         for (const KeyView& kv : keys) {
            if (kv.name == k) {
               ok = kv.value == v;
               break;
            }
         }
         if (!ok) return false;
      }
      return true;
   }

   const Path& pattern_;
   size_t depth_ = 0;
   bool matched_ = false;
};

class LeafCollector : public PatternSink {
public:
   LeafCollector(const Path& pattern, const std::function<void(const Leaf&)>& fn, LeafSet which)
       : PatternSink(pattern), fn_(fn), which_(which) {}

private:
   void onEnter(std::string_view name, std::initializer_list<KeyView> keys, Module) override {
      PathElem& e = leaf_.path.elems.emplace_back();
      e.name.assign(name);
      for (const KeyView& k : keys) e.keys.emplace_back(std::string(k.name), std::string(k.value));
   }
   void onLeave() override { leaf_.path.elems.pop_back(); }
   void onLeaf(std::string_view name, Value&& v, bool sampled, Module) override {
      matched_ = true;
      if (which_ == LeafSet::OnChange && sampled) return;
      if (which_ == LeafSet::Sampled && !sampled) return;
      leaf_.path.elems.emplace_back().name.assign(name);
      leaf_.value = std::move(v);
      fn_(leaf_);
      leaf_.path.elems.pop_back();
   }

   const std::function<void(const Leaf&)>& fn_;
   LeafSet which_;
   Leaf leaf_;
};

// One JSON document per node the pattern matches, written as the tree comes.
class JsonWriter : public PatternSink {
public:
   JsonWriter(const Path& pattern, Encoding e, const Model::JsonSink& fn)
       : PatternSink(pattern), ietf_(e == Encoding::JsonIetf), fn_(fn) {
      if (pattern.elems.empty()) begin();
   }
   void finish() {
      if (pattern_.elems.empty()) end();
   }

private:
   struct Level {
      Module module = Oc::moduleLldp;
      bool first = true;
      std::string openList;  // the list whose array is open at this level
   };

   void begin() {
      matched_ = true;
      out_.assign(1, '{');
      levels_.assign(1, Level{});
   }
   void end() {
      closeList(levels_.back());
      out_ += '}';
      fn_(current_, std::move(out_));
      out_.clear();
      levels_.clear();
   }
   void closeList(Level& l) {
      if (!l.openList.empty()) out_ += ']';
      l.openList.clear();
   }
   void memberName(std::string_view name, Module m) {
      Level& l = levels_.back();
      if (!l.first) out_ += ',';
      l.first = false;
      out_ += '"';
      if (ietf_ && (levels_.size() == 1 || m != l.module)) {
         out_ += Oc::moduleName(m);
         out_ += ':';
      }
      out_.append(name);
      out_ += "\":";
   }

   void onEnter(std::string_view name, std::initializer_list<KeyView> keys, Module m) override {
      PathElem& e = current_.elems.emplace_back();
      e.name.assign(name);
      for (const KeyView& k : keys) e.keys.emplace_back(std::string(k.name), std::string(k.value));
      if (levels_.empty()) {
         if (depth_ == pattern_.elems.size()) {
            begin();
            levels_.back().module = m;
         }
         return;
      }
      Level& l = levels_.back();
      if (keys.size() != 0) {
         if (l.openList == name) {
            out_ += ",{";
         } else {
            closeList(l);
            memberName(name, m);
            out_ += "[{";
            l.openList.assign(name);
         }
      } else {
         closeList(l);
         memberName(name, m);
         out_ += '{';
      }
      levels_.push_back(Level{m, true, {}});
   }
   void onLeave() override {
      if (levels_.size() == 1 && depth_ == pattern_.elems.size()) end();
      current_.elems.pop_back();
      if (levels_.size() <= 1) return;
      closeList(levels_.back());
      levels_.pop_back();
      out_ += '}';
   }
   void onLeaf(std::string_view name, Value&& v, bool, Module m) override {
      if (levels_.empty()) {
         // The pattern names this leaf: its value alone.
         matched_ = true;
         current_.elems.emplace_back().name.assign(name);
         fn_(current_, jsonValue(v, ietf_ ? Encoding::JsonIetf : Encoding::Json));
         current_.elems.pop_back();
         return;
      }
      closeList(levels_.back());
      memberName(name, m);
      const std::string* text = std::get_if<std::string>(&v);
      if (text) {
         appendJsonString(out_, *text);
      } else {
         out_ += jsonValue(v, ietf_ ? Encoding::JsonIetf : Encoding::Json);
      }
   }

   bool ietf_;
   const Model::JsonSink& fn_;
   Path current_;
   std::string out_;
   std::vector<Level> levels_;
};

}  // namespace

class Model::Impl {
public:
   explicit Impl(const Sources& s) : db(s.db) {}
   Vel::StateDb* db;
   std::unique_ptr<GnmiWatch> hub;

   std::optional<Error> read(const Path& p, PatternSink& sink) const {
      if (auto e = Oc::resolve(p, nullptr)) return e;
      Oc::Records r = Oc::Records::from(*db);
      if (!r.cliConfig && !r.config && !r.localSystem && !r.status) {
         return Error{codeUnavailable, "the agent has not published its records yet"};
      }
      Oc::writeRoot(r, sink);
      return std::nullopt;
   }
};

Model::Model(const Sources& s) : impl_(std::make_unique<Impl>(s)) {}

Model::~Model() = default;

std::optional<Error> Model::check(const Path& p) const {
   return Oc::resolve(p, nullptr);
}

std::optional<Error> Model::leaves(const Path& p, const std::function<void(const Leaf&)>& fn,
                                   LeafSet which) const {
   if (auto e = Oc::resolve(p, nullptr)) return e;
   const Path pattern = bareNames(p);
   LeafCollector sink(pattern, fn, which);
   if (auto e = impl_->read(pattern, sink)) return e;
   if (!sink.matched() && concrete(pattern)) {
      return Error{codeNotFound, "nothing at " + toString(p)};
   }
   return std::nullopt;
}

std::optional<Error> Model::json(const Path& p, Encoding e, const JsonSink& fn) const {
   if (auto err = Oc::resolve(p, nullptr)) return err;
   const Path pattern = bareNames(p);
   JsonWriter sink(pattern, e, fn);
   if (auto err = impl_->read(pattern, sink)) return err;
   sink.finish();
   if (!sink.matched() && concrete(pattern)) {
      return Error{codeNotFound, "nothing at " + toString(p)};
   }
   return std::nullopt;
}

std::optional<Error> Model::watch(const Path& p, Sink sink, std::unique_ptr<Watch>& out) {
   if (auto e = Oc::resolve(p, nullptr)) return e;
   if (!impl_->hub) impl_->hub = std::make_unique<GnmiWatch>(*impl_->db);
   return impl_->hub->watch(bareNames(p), std::move(sink), out);
}

std::optional<Error> Model::set(const std::vector<Path>& deletes,
                                const std::vector<Update>& replaces,
                                const std::vector<Update>& updates) {
   return applySet(*impl_->db, deletes, replaces, updates);
}

std::vector<ModelInfo> Model::supportedModels() const {
   return {{"openconfig-lldp", "OpenConfig working group", "0.2.1"},
           {"openconfig-lldp-types", "OpenConfig working group", "0.1.1"},
           {"lldp-agent-ext", "lldp-agent", "1.0.0"}};
}

size_t Model::watchCount() const {
   return impl_->hub ? impl_->hub->watchCount() : 0;
}

}  // namespace Gnmi
