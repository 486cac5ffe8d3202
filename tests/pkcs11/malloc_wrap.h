// A malloc that fails when it is told to, for the code that the test is linked with.
#pragma once

#include <cstddef>

// The next malloc of `size` bytes answers null; both are noted in the trace.
void FailMallocOf(std::size_t size);
