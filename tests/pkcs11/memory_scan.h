// Looks for a secret in the memory of this process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A secret that exists in memory only where somebody writes it: it is kept as two halves, each of
// which is random, and only their XOR is the secret. So the keeper itself is never found.
class Secret {
 public:
  static constexpr std::size_t kLength = 24;

  Secret();
  // Writes the secret, byte by byte.
  void WriteTo(unsigned char* buffer) const;
  // The secret with all of its bits flipped.
  std::string Complement() const;
  // Whether the secret stands at `bytes`, of which kLength can be read.
  bool StandsAt(const volatile unsigned char* bytes) const;

 private:
  unsigned char first_[kLength] = {};
  unsigned char second_[kLength] = {};
};

// The writable memory of this process, as it is mapped when the object is made: the heap, the stack
// (what lies below its pointer, too), the data of every library.
class WritableMemory {
 public:
  WritableMemory();
  // How often the secret stands in it. Nothing is allocated or copied, and next to no stack is
  // used: a search that tidied up the stack before it looked would find nothing there.
  std::size_t Count(const Secret& secret) const;

 private:
  struct Region {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
  };
  std::vector<Region> regions_;
};
