// Character strings of names (X.680 41, X.690 8.23), one character at a time.
#pragma once

#include <cstdint>

#include "host/x509/der.h"

namespace cardcert::x509 {

// Whether an element with this tag is a character string that CharacterReader reads.
bool IsCharacterString(unsigned char tag);

// Whether the contents of a character string are its text: printable ASCII in a type of which that
// is true. So are nearly all names, and need not be taken apart.
bool IsPrintableAscii(const Element& string);

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

// Collects text. Put() goes on counting where the buffer ends; what the buffer holds then is no
// text.
class TextWriter {
 public:
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
  void Put(Bytes octets) {
    if (length_ < capacity_ && octets.size <= capacity_ - length_)
      std::memcpy(buffer_ + length_, octets.data, octets.size);
    length_ += octets.size;
  }
  void PutHex(unsigned char octet);
  void PutUtf8(std::uint32_t code_point);

  std::size_t Length() const { return length_; }

 private:
  char* buffer_;
  std::size_t capacity_;
  std::size_t length_ = 0;
};

}  // namespace cardcert::x509
