// Storage for a PIN.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "cli/terminal/core_dump_blocker.h"

namespace cardcert::cli {

struct SecretMemory;

// Holds one PIN and clears it when destroyed. Neither copied nor moved, so there is only one place
// to clear.
//
// The bytes lie in a page of their own, which is locked (never written to swap space), left out of
// core files, and empty in a process that a provider forks. Locking may fail because of a limit
// (RLIMIT_MEMLOCK). Nothing is reported then: the user can do little about it, and everything else
// still holds. The process cannot be dumped as long as a Secret exists.
//
// Secrets may be used by one thread only.
class Secret {
 public:
  // The size of the buffer in which the component takes a PIN.
  static constexpr std::size_t kCapacity = 128;

  // Throws std::bad_alloc if there is no memory, or if there are too many at a time (24).
  Secret();
  ~Secret();
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  void Clear();
  void Append(unsigned char byte);

  // Reads one byte, which does not become part of the PIN yet. Returns what read(2) returns.
  ssize_t ReadByte(int descriptor);
  // The byte that was read last.
  unsigned char byte() const;

  // Copies the PIN; `to` must have room for kCapacity bytes. This and Equals() go byte by byte,
  // because memcpy() and its like leave bytes in vector registers, which the dynamic linker and
  // signal handlers may spill to the stack.
  void CopyTo(volatile unsigned char* to) const;
  bool Equals(const Secret& other) const;
  bool BeginsWith(const char* text) const;

  std::size_t length() const;
  bool too_long() const;

 private:
  CoreDumpBlocker core_dump_blocker_;
  SecretMemory& memory_;
};

}  // namespace cardcert::cli
