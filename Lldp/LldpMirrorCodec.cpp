#include "Lldp/LldpMirrorCodec.h"

#include <cstring>
#include <functional>
#include <typeinfo>
#include <vector>

namespace Lldp::Mirror {

namespace {

template <class T>
concept Entry = requires(const T& v) {
   v.begin()->second.ptr();
};  // child entities
template <class T>
concept Fields = requires(const T& v) {
   v.visitFields([](const char*, const auto&) {});
};
template <class T>
concept Bits = requires {
   T::visitBits([](const char*, auto) {});
};
template <class T>
concept Bounded = requires {
   T::maxBytes;
};
template <class T>
concept Map = requires(T& v) {
   v.begin()->first;
   v.clear();
   v.set(v.begin()->first, v.begin()->second);
};
// A number with a range its constructor checks (VLAN IDs, bounded integers, OUIs).
template <class T>
concept Ranged = std::is_trivially_copyable_v<T> && requires(const T& v) {
   { v.value() } -> std::integral;
   T(v.value());
};

class Writer {
public:
   explicit Writer(std::string& out) : out_(out) {}

   void length(size_t n) {
      // Seven bits a byte, the last byte without its top bit.
      while (n >= 0x80) {
         out_.push_back(char(uint8_t(n) | 0x80));
         n >>= 7;
      }
      out_.push_back(char(n));
   }
   void bytes(std::string_view s) {
      length(s.size());
      out_.append(s);
   }
   template <class T>
   void raw(const T& v) {
      out_.append(reinterpret_cast<const char*>(&v), sizeof v);
   }

   template <class T>
   void put(const T& v) {
      if constexpr (Entry<T>) {
         // Child entities travel as records of their own.
      } else if constexpr (std::is_same_v<T, Wire::IntfId>) {
         bytes(v.name());
         raw(uint8_t(v.kind()));
         raw(uint8_t(v.switchStyleName()));
      } else if constexpr (std::is_same_v<T, Snmp::ObjectIdentifier>) {
         length(v.size());
         for (size_t i = 0; i < v.size(); ++i) raw(v[i]);
      } else if constexpr (std::is_same_v<T, std::string>) {
         bytes(v);
      } else if constexpr (Bounded<T>) {
         bytes(v.value());
      } else if constexpr (Fields<T>) {
         v.visitFields([this](const char*, const auto& f) { this->put(f); });
      } else if constexpr (Bits<T>) {
         raw(v.value());
      } else if constexpr (Map<T>) {
         length(v.size());
         for (const auto& [k, m] : v) {
            put(k);
            put(m);
         }
      } else if constexpr (Ranged<T>) {
         raw(v.value());
      } else {
         static_assert(std::is_trivially_copyable_v<T>, "a record type the mirror cannot carry");
         raw(v);
      }
   }

private:
   std::string& out_;
};

class Reader {
public:
   explicit Reader(std::string_view in) : p_(in.data()), end_(in.data() + in.size()) {}
   bool done() const { return p_ == end_; }

   bool length(size_t& n) {
      n = 0;
      for (unsigned shift = 0; shift < 35; shift += 7) {
         if (p_ == end_) return false;
         const uint8_t b = uint8_t(*p_++);
         n |= size_t(b & 0x7f) << shift;
         if (!(b & 0x80)) return true;
      }
      return false;
   }
   bool bytes(std::string_view& s, size_t max) {
      size_t n;
      if (!length(n) || n > max || n > size_t(end_ - p_)) return false;
      s = std::string_view(p_, n);
      p_ += n;
      return true;
   }
   template <class T>
   bool raw(T& v) {
      if (size_t(end_ - p_) < sizeof v) return false;
      std::memcpy(static_cast<void*>(&v), p_, sizeof v);
      p_ += sizeof v;
      return true;
   }

   template <class T>
   bool get(T& v) {
      if constexpr (Entry<T>) {
         return true;
      } else if constexpr (std::is_same_v<T, Wire::IntfId>) {
         std::string_view name;
         uint8_t kind = 0, switchStyle = 0;
         if (!bytes(name, Wire::IntfId::maxNameLen) || !raw(kind) || !raw(switchStyle)) {
            return false;
         }
         v = switchStyle ? Wire::IntfId(name) : Wire::IntfId::linux(name, Wire::IntfKind(kind));
         return true;
      } else if constexpr (std::is_same_v<T, Snmp::ObjectIdentifier>) {
         size_t n;
         if (!length(n) || n > Snmp::ObjectIdentifier::maxSubIds) return false;
         v.clear();
         for (size_t i = 0; i < n; ++i) {
            uint32_t id;
            if (!raw(id) || !v.push(id)) return false;
         }
         return true;
      } else if constexpr (std::is_same_v<T, std::string>) {
         std::string_view s;
         if (!bytes(s, size_t(end_ - p_))) return false;
         v.assign(s);
         return true;
      } else if constexpr (Bounded<T>) {
         std::string_view s;
         if (!bytes(s, T::maxBytes)) return false;
         v = T(s);
         return true;
      } else if constexpr (Fields<T>) {
         bool ok = true;
         // The fields are the record's own members, written in place.
         v.visitFields([&](const char*, const auto& f) {
            using F = std::remove_cvref_t<decltype(f)>;
            ok = ok && get(const_cast<F&>(f));
         });
         return ok;
      } else if constexpr (Bits<T>) {
         typename T::Underlying x{};
         if (!raw(x)) return false;
         v.valueIs(x);
         return true;
      } else if constexpr (Map<T>) {
         size_t n;
         if (!length(n) || n > size_t(end_ - p_)) return false;  // each member takes a byte
         v.clear();
         using K = std::remove_cvref_t<decltype(v.begin()->first)>;
         using M = std::remove_cvref_t<decltype(v.begin()->second)>;
         for (size_t i = 0; i < n; ++i) {
            K k{};
            M m{};
            if (!get(k) || !get(m)) return false;
            v.set(k, m);
         }
         return true;
      } else if constexpr (Ranged<T>) {
         std::remove_cvref_t<decltype(v.value())> x{};
         if (!raw(x)) return false;
         v = T(x);  // out of range: a range error, caught by decodeAttrs
         return true;
      } else {
         return raw(v);
      }
   }

private:
   const char* p_;
   const char* end_;
};

template <class E>
void encodeAttrs(const E& e, std::string& out) {
   Writer w(out);
   e.visitAttrs([&w](const char*, const auto& f) { w.put(f); });
}

template <class E>
bool decodeAttrs(std::string_view in, E& e) {
   Reader r(in);
   bool ok = true;
   try {
      e.visitAttrs([&](const char*, const auto& f) {
         using F = std::remove_cvref_t<decltype(f)>;
         ok = ok && r.get(const_cast<F&>(f));
      });
   } catch (const Vel::RangeException&) {
      return false;  // a value out of its range, from the bytes
   }
   return ok && r.done();
}

template <class E>
void describeLayout(const E& e, std::string& out) {
   out += E::typeName();
   e.visitAttrs([&out](const char* name, const auto& f) {
      out += ' ';
      out += name;
      out += ':';
      out += typeid(f).name();
      out += '/';
      out += std::to_string(sizeof f);
   });
   out += ';';
}

}  // namespace

const std::string& recordLayout() {
   static const std::string layout = [] {
      std::string d;
      describeLayout(RemoteSystem(0, Msap()), d);
      describeLayout(PortStatus(Wire::IntfId(), 0), d);
      describeLayout(StatusBase(), d);
      char buf[32];
      std::snprintf(buf, sizeof buf, "v1-%016zx", std::hash<std::string>()(d));
      return std::string(buf);
   }();
   return layout;
}

void encode(const RemoteSystem& r, std::string& out) {
   encodeAttrs(r, out);
}
void encode(const PortStatus& p, std::string& out) {
   encodeAttrs(p, out);
}
void encode(const StatusBase& s, std::string& out) {
   encodeAttrs(s, out);
}
bool decode(std::string_view in, RemoteSystem& r) {
   return decodeAttrs(in, r);
}
bool decode(std::string_view in, PortStatus& p) {
   return decodeAttrs(in, p);
}
bool decode(std::string_view in, StatusBase& s) {
   return decodeAttrs(in, s);
}

// Attribute by attribute through the writers, which notify only what changed.
#define MIRROR_COPY_NONE2(a, b)
#define MIRROR_COPY_NONE3(a, b, c)
#define MIRROR_COPY_NONE4(a, b, c, d)
#define MIRROR_COPY_ATTR(T, n, d) to.n##Is(from.n());
#define MIRROR_COPY_COUNTER(T, n) to.n##Is(from.n());
#define MIRROR_COPY_COLL(K, V, n)                                 \
   {                                                              \
      std::vector<K> gone;                                        \
      for (const auto& m : to.n()) {                              \
         if (!from.n(m.first)) gone.push_back(m.first);           \
      }                                                           \
      for (const K& k : gone) to.n##Del(k);                       \
      for (const auto& m : from.n()) to.n##Is(m.first, m.second); \
   }

void copyAttrs(const RemoteSystem& from, RemoteSystem& to) {
   LLDP_REMOTE_SYSTEM_ATTRS(MIRROR_COPY_NONE2, MIRROR_COPY_ATTR, MIRROR_COPY_COUNTER,
                            MIRROR_COPY_COLL, MIRROR_COPY_COLL, MIRROR_COPY_NONE3,
                            MIRROR_COPY_NONE4)
}

void copyAttrs(const PortStatus& from, PortStatus& to) {
   LLDP_PORT_STATUS_ATTRS(MIRROR_COPY_NONE2, MIRROR_COPY_ATTR, MIRROR_COPY_COUNTER,
                          MIRROR_COPY_COLL, MIRROR_COPY_COLL, MIRROR_COPY_NONE3, MIRROR_COPY_NONE4)
}

void copyAttrs(const StatusBase& from, StatusBase& to) {
   LLDP_STATUS_BASE_ATTRS(MIRROR_COPY_NONE2, MIRROR_COPY_ATTR, MIRROR_COPY_COUNTER,
                          MIRROR_COPY_COLL, MIRROR_COPY_COLL, MIRROR_COPY_NONE3, MIRROR_COPY_NONE4)
}

void appendHex(std::string_view bytes, std::string& out) {
   static const char digits[] = "0123456789abcdef";
   const size_t at = out.size();
   out.resize(at + bytes.size() * 2);
   char* p = out.data() + at;
   for (unsigned char c : bytes) {
      *p++ = digits[c >> 4];
      *p++ = digits[c & 15];
   }
}

bool fromHex(std::string_view hex, std::string& out) {
   if (hex.size() % 2) return false;
   out.resize(hex.size() / 2);
   auto nibble = [](char c) -> int {
      if (c >= '0' && c <= '9') return c - '0';
      if (c >= 'a' && c <= 'f') return c - 'a' + 10;
      return -1;
   };
   for (size_t i = 0; i < out.size(); ++i) {
      const int hi = nibble(hex[2 * i]), lo = nibble(hex[2 * i + 1]);
      if (hi < 0 || lo < 0) return false;
      out[i] = char(hi << 4 | lo);
   }
   return true;
}

}  // namespace Lldp::Mirror
