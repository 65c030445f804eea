#include "Framework/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Vel {

void assertFailed(const char* text, const char* file, int line) noexcept {
   std::fprintf(stderr, "Assertion failed: %s (%s:%d)\n", text, file, line);
   std::fflush(stderr);
   std::abort();
}

}  // namespace Vel
