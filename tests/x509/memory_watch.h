// Counts allocations with operator new, and makes one of them fail. Replaces the global operator
// new, so the tests that use it are a separate program.
#pragma once

#include <cstddef>

struct Memory {
  bool counting = false;
  int num_allocations = 0;
  std::size_t num_octets = 0;
  int failing_allocation = -1;  // the index of the allocation that fails, or -1
};
extern Memory memory;

// Enables counting and failing until destroyed.
class Watch {
 public:
  explicit Watch(int failing_allocation = -1) {
    memory.num_allocations = 0;
    memory.num_octets = 0;
    memory.failing_allocation = failing_allocation;
    memory.counting = true;
  }
  ~Watch() { memory.counting = false; }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};
