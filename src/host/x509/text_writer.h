// Writing text to a buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/x509/bytes.h"

namespace cardcert::x509 {

// Writes text to a buffer of fixed size. Does not append a NUL. At the end of the buffer
// it stops writing but goes on counting: if Length() exceeds the capacity, the text did not fit,
// and the contents of the buffer are unspecified.
class TextWriter {
 public:
  // `buffer` must outlive the writer. It may be null if `capacity` is 0.
  TextWriter(char* buffer, std::size_t capacity) : buffer_(buffer), capacity_(capacity) {}

  void Put(char character) {
    if (length_ < capacity_)
      buffer_[length_] = character;
    ++length_;
  }
  void Put(const char* text) {
    for (; *text != '\0'; ++text)
      Put(*text);
  }
  // Writes either all of the octets or none.
  void Put(Bytes octets) {
    if (length_ < capacity_ && octets.size <= capacity_ - length_)
      std::memcpy(buffer_ + length_, octets.data, octets.size);
    length_ += octets.size;
  }
  // Writes two upper-case digits.
  void PutHex(unsigned char octet);
  // Writes the code point, at most 10FFFF, in UTF-8.
  void PutUtf8(std::uint32_t code_point);

  // Returns the length of the text in octets, including what did not fit.
  std::size_t Length() const { return length_; }

 private:
  char* buffer_;
  std::size_t capacity_;
  std::size_t length_ = 0;
};

}  // namespace cardcert::x509
