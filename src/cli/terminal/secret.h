// Storage for a PIN.
#pragma once

#include <string.h>

#include <cstddef>

namespace cardcert::cli {

// Holds one PIN and clears it when destroyed. Neither copied nor moved, so there is only one place
// to clear. explicit_bzero() is used because the optimiser may drop a memset() of memory that is
// not read again.
class Secret {
 public:
  // The size of the buffer in which the component takes a PIN.
  static constexpr std::size_t kCapacity = 128;

  Secret() = default;
  ~Secret() { Clear(); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  void Clear() {
    explicit_bzero(bytes_, sizeof bytes_);
    length_ = 0;
    too_long_ = false;
  }

  void Append(unsigned char byte) {
    if (length_ < kCapacity)
      bytes_[length_++] = byte;
    else
      too_long_ = true;
  }

  // Copies the PIN; `to` must have room for kCapacity bytes. This and Equals() go byte by byte,
  // because memcpy() and its like leave bytes in vector registers, which the dynamic linker and
  // signal handlers may spill to the stack.
  void CopyTo(volatile unsigned char* to) const {
    for (std::size_t i = 0; i < length_; ++i)
      to[i] = bytes_[i];
  }

  bool Equals(const Secret& other) const {
    const volatile unsigned char* const ours = bytes_;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < kCapacity; ++i)
      difference = static_cast<unsigned char>(difference | (ours[i] ^ other.bytes_[i]));
    return length_ == other.length_ && difference == 0;
  }

  bool BeginsWith(const char* text) const {
    std::size_t i = 0;
    while (text[i] != '\0' && i < length_ && bytes_[i] == static_cast<unsigned char>(text[i]))
      ++i;
    return text[i] == '\0';
  }

  std::size_t length() const { return length_; }
  bool too_long() const { return too_long_; }

 private:
  unsigned char bytes_[kCapacity] = {};
  std::size_t length_ = 0;
  bool too_long_ = false;
};

}  // namespace cardcert::cli
