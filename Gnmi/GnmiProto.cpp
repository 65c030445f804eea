#include "Gnmi/GnmiProto.h"

#include <algorithm>

namespace Gnmi {

bool fromProto(const gnmi::Path& in, Path& out, std::string& error) {
   Path p;
   p.origin = in.origin();
   if (in.elem_size() > int(maxPathElems)) {
      error = "path has more than " + std::to_string(maxPathElems) + " elements";
      return false;
   }
   for (const gnmi::PathElem& e : in.elem()) {
      if (e.name().empty()) {
         error = "path element " + std::to_string(p.elems.size()) + " has no name";
         return false;
      }
      if (e.key_size() > int(maxPathKeys)) {
         error = "path element '" + e.name() + "' has more than " + std::to_string(maxPathKeys) +
                 " keys";
         return false;
      }
      PathElem pe;
      pe.name = e.name();
      for (const auto& [k, v] : e.key()) pe.keys.emplace_back(k, v);
      std::sort(pe.keys.begin(), pe.keys.end());
      p.elems.push_back(std::move(pe));
   }
   out = std::move(p);
   return true;
}

void toProto(const Path& in, gnmi::Path* out) {
   if (!in.origin.empty()) out->set_origin(in.origin);
   for (const PathElem& e : in.elems) {
      gnmi::PathElem* pe = out->add_elem();
      pe->set_name(e.name);
      for (const auto& [k, v] : e.keys) (*pe->mutable_key())[k] = v;
   }
}

void toProto(const Value& in, gnmi::TypedValue* out) {
   struct {
      gnmi::TypedValue* out;
      void operator()(const std::string& s) { out->set_string_val(s); }
      void operator()(uint64_t u) { out->set_uint_val(u); }
      void operator()(int64_t i) { out->set_int_val(i); }
      void operator()(bool b) { out->set_bool_val(b); }
      void operator()(double d) { out->set_double_val(d); }
      void operator()(const std::vector<std::string>& list) {
         gnmi::ScalarArray* a = out->mutable_leaflist_val();
         for (const std::string& s : list) a->add_element()->set_string_val(s);
      }
   } visit{out};
   std::visit(visit, in);
}

bool fromProto(const gnmi::TypedValue& in, Update& out, std::string& error) {
   out.json = false;
   switch (in.value_case()) {
      case gnmi::TypedValue::kStringVal:
         out.value = in.string_val();
         return true;
      case gnmi::TypedValue::kAsciiVal:
         out.value = in.ascii_val();
         return true;
      case gnmi::TypedValue::kIntVal:
         out.value = int64_t(in.int_val());
         return true;
      case gnmi::TypedValue::kUintVal:
         out.value = uint64_t(in.uint_val());
         return true;
      case gnmi::TypedValue::kBoolVal:
         out.value = in.bool_val();
         return true;
      case gnmi::TypedValue::kDoubleVal:
         out.value = in.double_val();
         return true;
      case gnmi::TypedValue::kFloatVal:
         out.value = double(in.float_val());
         return true;
      case gnmi::TypedValue::kJsonVal:
         out.value = in.json_val();
         out.json = true;
         return true;
      case gnmi::TypedValue::kJsonIetfVal:
         out.value = in.json_ietf_val();
         out.json = true;
         return true;
      case gnmi::TypedValue::kLeaflistVal: {
         std::vector<std::string> list;
         for (const gnmi::TypedValue& e : in.leaflist_val().element()) {
            if (e.value_case() != gnmi::TypedValue::kStringVal) {
               error = "leaf-list elements must be strings";
               return false;
            }
            list.push_back(e.string_val());
         }
         out.value = std::move(list);
         return true;
      }
      case gnmi::TypedValue::VALUE_NOT_SET:
         error = "no value";
         return false;
      default:
         error = "value type not accepted for configuration (bytes, decimal, any, proto)";
         return false;
   }
}

void toProto(const Change& in, gnmi::Notification* out) {
   out->set_timestamp(int64_t(in.timestampNs));
   toProto(in.prefix, out->mutable_prefix());
   for (const Leaf& l : in.updates) {
      gnmi::Update* u = out->add_update();
      toProto(l.path, u->mutable_path());
      toProto(l.value, u->mutable_val());
   }
   for (const Path& d : in.deletes) toProto(d, out->add_delete_());
   out->set_atomic(true);
}

}  // namespace Gnmi
