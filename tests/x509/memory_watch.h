// Counts what is allocated with operator new, and lets one allocation fail. Links a replacement of
// the global operator new, so the tests that use it are a program of their own.
#pragma once

#include <cstddef>

struct Memory {
  bool counting = false;
  int num_allocations = 0;
  std::size_t num_octets = 0;
  int failing_allocation = -1;  // by its number; -1: none
};
extern Memory memory;

// Counts, and fails, while it lives.
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
