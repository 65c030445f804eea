// Counts heap allocations made by this thread, so tests can prove that the byte path
// does not allocate.
#pragma once

#include <cstddef>

namespace TestSupport {

size_t allocationCount();

// Allocations made between construction and count().
class AllocScope {
public:
   AllocScope() : start_(allocationCount()) {}
   size_t count() const { return allocationCount() - start_; }

private:
   size_t start_;
};

}  // namespace TestSupport
