#include "tests/Support/AllocCounter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local size_t allocations = 0;
}

namespace TestSupport {
size_t allocationCount() {
   return allocations;
}
}  // namespace TestSupport

void* operator new(size_t n) {
   ++allocations;
   if (void* p = std::malloc(n ? n : 1)) return p;
   throw std::bad_alloc();
}
void* operator new[](size_t n) {
   return operator new(n);
}
void* operator new(size_t n, const std::nothrow_t&) noexcept {
   ++allocations;
   return std::malloc(n ? n : 1);
}
void* operator new[](size_t n, const std::nothrow_t& t) noexcept {
   return operator new(n, t);
}
void operator delete(void* p) noexcept {
   std::free(p);
}
void operator delete[](void* p) noexcept {
   std::free(p);
}
void operator delete(void* p, size_t) noexcept {
   std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
   std::free(p);
}
