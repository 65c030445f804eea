// A byte string that everyone holding the same bytes shares: one reference-counted copy
// per distinct value, found again through a process-wide table keyed by the bytes'
// hash. For per-record copies of something many records have in common (the last
// LLDPDU of neighbours that all send the same TLVs), each holder then costs a pointer.
// A holder whose bytes change while nobody else holds them keeps its copy to itself from
// then on: rewritten in place, out of the table, so a neighbour whose LLDPDU keeps
// changing pays a copy, not a hash and a table update, per change. Records live on the
// agent's one thread, so the table and the counts are not locked.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace Vel {

class SharedBytes {
public:
   SharedBytes() = default;
   SharedBytes(const SharedBytes& o) : blob_(o.blob_) {
      if (blob_) ++blob_->refs;
   }
   SharedBytes& operator=(const SharedBytes& o) {
      if (o.blob_) ++o.blob_->refs;
      drop();
      blob_ = o.blob_;
      return *this;
   }
   ~SharedBytes() { drop(); }

   std::string_view value() const {
      return blob_ ? std::string_view(blob_->bytes(), blob_->len) : std::string_view();
   }
   bool operator==(std::string_view bytes) const { return value() == bytes; }
   // Holds `bytes` from now on, sharing the copy of whoever already holds them. Costs
   // nothing when this already holds them, and no allocation when this alone holds a copy
   // with room for them.
   void assign(std::string_view bytes) {
      if (blob_ && value() == bytes) return;
      if (blob_ && blob_->refs == 1 && blob_->cap >= bytes.size()) {
         if (blob_->shared) {
            table().erase(find(blob_));
            blob_->shared = false;
         }
         if (!bytes.empty()) std::memcpy(blob_->bytes(), bytes.data(), bytes.size());
         blob_->len = static_cast<uint32_t>(bytes.size());
         return;
      }
      const size_t h = std::hash<std::string_view>()(bytes);
      auto& t = table();
      Blob* found = nullptr;
      for (auto [it, last] = t.equal_range(h); it != last; ++it) {
         if (std::string_view(it->second->bytes(), it->second->len) == bytes) {
            found = it->second;
            break;
         }
      }
      if (!found) {
         const auto n = static_cast<uint32_t>(bytes.size());
         void* mem = ::operator new(sizeof(Blob) + n);
         found = new (mem) Blob{h, 0, n, n, true};
         if (n) std::memcpy(found->bytes(), bytes.data(), n);
         t.emplace(h, found);
      }
      ++found->refs;
      drop();
      blob_ = found;
   }
   void clear() {
      drop();
      blob_ = nullptr;
   }
   // Distinct values in the shared table (a holder's own copy is not counted).
   static size_t distinctValues() { return table().size(); }

private:
   struct Blob {
      size_t hash;
      uint32_t refs;
      uint32_t len;
      uint32_t cap;
      bool shared;  // in the table; else its one holder's own copy
      char* bytes() { return reinterpret_cast<char*>(this + 1); }
   };
   using Table = std::unordered_multimap<size_t, Blob*>;
   static Table& table() {
      static Table* t = new Table;  // never destroyed: holders may outlive statics
      return *t;
   }
   static Table::iterator find(Blob* b) {
      auto it = table().equal_range(b->hash).first;
      while (it->second != b) ++it;  // b is in the table while anyone holds it
      return it;
   }
   void drop() {
      if (!blob_ || --blob_->refs > 0) return;
      if (blob_->shared) table().erase(find(blob_));
      blob_->~Blob();
      ::operator delete(blob_);
   }
   Blob* blob_ = nullptr;
};

}  // namespace Vel
