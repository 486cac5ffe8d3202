// Searches the memory of this process for a secret.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A random secret. It is stored as two random halves whose XOR is the secret, so that a search does
// not find the object itself, only what WriteTo() has written and the copies of that.
class Secret {
 public:
  static constexpr std::size_t kLength = 24;

  Secret();
  // Writes kLength bytes.
  void WriteTo(unsigned char* buffer) const;
  // Returns the secret with every bit inverted.
  std::string Complement() const;
  // Compares kLength bytes with the secret.
  bool IsAt(const volatile unsigned char* bytes) const;

 private:
  unsigned char first_[kLength] = {};
  unsigned char second_[kLength] = {};
};

// The writable memory of this process at the time of construction: the heap, the stack including
// the part below the stack pointer, and the data of every library.
class WritableMemory {
 public:
  WritableMemory();
  // Returns the number of copies of the secret. Allocates nothing and uses hardly any stack: it
  // must not overwrite the copies below the stack pointer before it has read them.
  std::size_t Count(const Secret& secret) const;

 private:
  struct Region {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
  };
  std::vector<Region> regions_;
};
