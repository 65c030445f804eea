#include "Snmp/MibTree.h"

#include <algorithm>

namespace Snmp {

std::string Oid::str() const {
   std::string s;
   for (size_t i = 0; i < len; ++i) {
      s += '.';
      s += std::to_string(id[i]);
   }
   return s;
}

const Oid& MibTree::root() {
   static const Oid r{1, 0, 8802, 1, 1, 2};
   return r;
}

MibTree::MibTree(const LldpMibSource& src) : src_(src) {
   addLldpMibObjects(objects_);
   addLldpExtMibObjects(objects_);
   std::sort(objects_.begin(), objects_.end(),
             [](const MibObject& a, const MibObject& b) { return a.oid.compare(b.oid) < 0; });
}

bool MibTree::get(const Oid& name, Value& out) const {
   for (const MibObject& o : objects_) {
      if (!name.startsWith(o.oid)) continue;
      if (o.scalar) {
         return name.len == o.oid.len + 1 && name.id[o.oid.len] == 0 && o.scalar(src_, out);
      }
      if (name.len < o.oid.len + 2) return false;
      const uint32_t col = name.id[o.oid.len];
      if (col < o.firstCol || col > o.lastCol) return false;
      const uint32_t* index = name.id + o.oid.len + 1;
      const size_t indexLen = name.len - o.oid.len - 1;
      RowFinder finder(index, indexLen, false);
      o.rows(src_, col, finder);
      if (!finder.found || Oid::compare(finder.best.id, finder.best.len, index, indexLen) != 0) {
         return false;
      }
      out = finder.value;
      return true;
   }
   return false;
}

bool MibTree::getNext(const Oid& name, Oid& outName, Value& out) const {
   static const uint32_t none[1] = {0};
   for (const MibObject& o : objects_) {
      const bool inside = name.startsWith(o.oid);
      if (!inside && name.compare(o.oid) > 0) continue;  // wholly before the request
      if (o.scalar) {
         // The only instance is .0; anything at or past it inside the scalar is beyond.
         if (inside && name.len > o.oid.len) continue;
         if (!o.scalar(src_, out)) continue;
         outName = o.oid;
         outName.push(0);
         return true;
      }
      uint32_t col = o.firstCol;
      const uint32_t* bound = none;
      size_t boundLen = 0;
      bool strict = false;
      if (inside && name.len > o.oid.len) {
         const uint32_t c = name.id[o.oid.len];
         if (c > o.lastCol) continue;
         if (c >= o.firstCol) {
            col = c;
            bound = name.id + o.oid.len + 1;
            boundLen = name.len - o.oid.len - 1;
            strict = true;
         }
      }
      for (; col <= o.lastCol; ++col) {
         RowFinder finder(bound, boundLen, strict);
         o.rows(src_, col, finder);
         if (finder.found) {
            outName = o.oid;
            outName.push(col);
            outName.append(finder.best);
            out = finder.value;
            return true;
         }
         bound = none;
         boundLen = 0;
         strict = false;
      }
   }
   return false;
}

}  // namespace Snmp
