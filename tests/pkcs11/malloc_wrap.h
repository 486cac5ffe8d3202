// Counts the blocks that malloc() has given to the code linked into the test, and makes one call
// fail.
#pragma once

#include <cstddef>

// The next malloc of `size` bytes returns a null pointer, which is recorded in the trace.
void FailMallocOf(std::size_t size);

// Returns the number of blocks in use, without those of operator new.
std::size_t MallocsAlive();
