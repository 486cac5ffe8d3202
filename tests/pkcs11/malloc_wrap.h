// A malloc that fails when it is told to and that keeps count, for the code that the test is linked
// with.
#pragma once

#include <cstddef>

// The next malloc of `size` bytes answers null; both are noted in the trace.
void FailMallocOf(std::size_t size);

// How many blocks are in use. Those of operator new are not among them.
std::size_t MallocsAlive();
