// Intrusive reference counting for entities. Everything runs on one event-loop thread,
// so the count is a plain integer: no atomics on the hot path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace Vel {

class RefCounted {
public:
   RefCounted() = default;
   RefCounted(const RefCounted&) = delete;
   RefCounted& operator=(const RefCounted&) = delete;
   uint32_t refCount() const { return refs_; }

protected:
   virtual ~RefCounted() = default;

private:
   template <class T>
   friend class Ptr;
   void ref() const { ++refs_; }
   void unref() const {
      if (--refs_ == 0) delete this;
   }
   mutable uint32_t refs_ = 0;
};

// Shared pointer to a RefCounted object; Ptr<const T> is the read-only view.
template <class T>
class Ptr {
public:
   Ptr() = default;
   Ptr(std::nullptr_t) {}
   Ptr(T* p) : p_(p) { acquire(); }
   Ptr(const Ptr& o) : p_(o.p_) { acquire(); }
   Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
   template <class U>
   requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& o) : p_(o.ptr()) { acquire(); }
   ~Ptr() { release(); }
   Ptr& operator=(Ptr o) noexcept {
      std::swap(p_, o.p_);
      return *this;
   }

   T* ptr() const { return p_; }
   T* operator->() const { return p_; }
   T& operator*() const { return *p_; }
   explicit operator bool() const { return p_ != nullptr; }
   bool operator==(const Ptr& o) const = default;
   bool operator==(std::nullptr_t) const { return p_ == nullptr; }

   // For a container that keeps references in words of its own: gives this one up to the
   // caller, or takes over one given up.
   T* detach() { return std::exchange(p_, nullptr); }
   static Ptr adopt(T* p) {
      Ptr r;
      r.p_ = p;
      return r;
   }

private:
   void acquire() {
      if (p_) p_->ref();
   }
   void release() {
      if (p_) p_->unref();
   }
   T* p_ = nullptr;
};

template <class T>
using PtrConst = Ptr<const T>;

template <class T, class... A>
Ptr<T> make(A&&... a) {
   return Ptr<T>(new T(std::forward<A>(a)...));
}

}  // namespace Vel
