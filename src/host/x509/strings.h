// Character strings of names (X.680 41, X.690 8.23), one character at a time.
#pragma once

#include <cstdint>

#include "host/x509/der.h"

namespace x509 {

// Whether an element with this tag is a character string that CharacterReader reads.
bool IsCharacterString(unsigned char tag);

// Yields the characters of one string as Unicode code points, checking them on the way.
class CharacterReader {
 public:
  explicit CharacterReader(const Element& string) : tag_(string.tag), rest_(string.value) {}

  bool AtEnd() const { return rest_.AtEnd(); }

  // The next character; not to be called at the end. A NUL is refused like any other character
  // that does not belong: names are handed out as C strings, and one that ends early reads as
  // another name than the issuer signed.
  Refusal Next(std::uint32_t* out);

 private:
  Refusal NextUtf8(unsigned char first, std::uint32_t* out);

  unsigned char tag_;
  Cursor rest_;
};

// Checks a whole string.
Refusal CheckCharacterString(const Element& string);

// Collects text, or only counts it: Put() goes on counting where the buffer ends.
class TextWriter {
 public:
  TextWriter() = default;  // counts
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
  void PutHex(unsigned char octet);
  void PutUtf8(std::uint32_t code_point);

  std::size_t Length() const { return length_; }

 private:
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t length_ = 0;
};

}  // namespace x509
