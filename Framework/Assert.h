// Invariant checks. A broken invariant is a programming error: the process prints the
// fixed text of the check and stops, so the fault is found rather than carried along.
#pragma once

namespace Vel {

[[noreturn]] void assertFailed(const char* text, const char* file, int line) noexcept;

}  // namespace Vel

// `text` is the fixed text that identifies the invariant in logs; it is given
// explicitly so it stays stable however the condition itself is spelled.
#define VEL_ASSERT(cond, text)                                                       \
   do {                                                                              \
      if (__builtin_expect(!(cond), 0)) Vel::assertFailed(text, __FILE__, __LINE__); \
   } while (0)
