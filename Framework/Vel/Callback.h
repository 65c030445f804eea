// A move-only `void()` callable in two words, for handlers that objects keep one per
// port (clocks): most are a lambda that captures `this` alone, which is kept in place.
// Anything larger, or not trivially copyable, is kept in a std::function on the heap.
#pragma once

#include <cstring>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

namespace Vel {

class Callback {
public:
   Callback() = default;
   Callback(std::nullptr_t) {}
   template <class F>
   requires(!std::is_same_v<std::decay_t<F>, Callback> &&
            !std::is_same_v<std::decay_t<F>, std::nullptr_t> && std::is_invocable_v<F&>)
       Callback(F&& f) {
      using Fn = std::decay_t<F>;
      if constexpr (sizeof(Fn) <= sizeof(void*) && alignof(Fn) <= alignof(void*) &&
                    std::is_trivially_copyable_v<Fn> && std::is_trivially_destructible_v<Fn>) {
         ::new (static_cast<void*>(bytes_)) Fn(std::forward<F>(f));
         invoke_ = [](unsigned char* b) { (*std::launder(reinterpret_cast<Fn*>(b)))(); };
      } else {
         auto* fn = new std::function<void()>(std::forward<F>(f));
         if (!*fn) {
            delete fn;  // an empty std::function: no handler
            return;
         }
         std::memcpy(bytes_, &fn, sizeof(fn));
         invoke_ = &invokeHeld;
      }
   }
   // The callable kept in place is trivially copyable, and a held one is a pointer: either
   // moves as bytes.
   Callback(Callback&& o) noexcept : invoke_(std::exchange(o.invoke_, nullptr)) {
      std::memcpy(bytes_, o.bytes_, sizeof(bytes_));
   }
   Callback& operator=(Callback&& o) noexcept {
      if (this != &o) {
         release();
         invoke_ = std::exchange(o.invoke_, nullptr);
         std::memcpy(bytes_, o.bytes_, sizeof(bytes_));
      }
      return *this;
   }
   Callback& operator=(std::nullptr_t) {
      release();
      invoke_ = nullptr;
      return *this;
   }
   ~Callback() { release(); }

   explicit operator bool() const { return invoke_ != nullptr; }
   void operator()() { invoke_(bytes_); }

private:
   static std::function<void()>* held(unsigned char* b) {
      std::function<void()>* fn;
      std::memcpy(&fn, b, sizeof(fn));
      return fn;
   }
   static void invokeHeld(unsigned char* b) { (*held(b))(); }
   void release() {
      if (invoke_ == &invokeHeld) delete held(bytes_);
   }

   void (*invoke_)(unsigned char*) = nullptr;
   // The callable itself, or the address of the std::function that holds it.
   alignas(void*) unsigned char bytes_[sizeof(void*)] = {};
};

}  // namespace Vel
