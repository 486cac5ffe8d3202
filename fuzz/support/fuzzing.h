// What the fuzz targets share. A target is a file targets/NAME.cpp that defines
// LLVMFuzzerTestOneInput() and calls Check() for each property; its inputs are in inputs/NAME.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Aborts the program if `holds` is false. `property` describes what should be true.
inline void Check(bool holds, const char* property) {
  if (holds)
    return;
  std::fprintf(stderr, "property violated: %s\n", property);
  std::abort();
}

// Reads values from the bytes of an input, first to last. At the end of the input every number is 0
// and every text is empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

  bool empty() const { return next_ == end_; }

  std::uint8_t Byte() { return empty() ? std::uint8_t{0} : *next_++; }

  // Returns a number less than `bound`, which must be between 1 and 256.
  unsigned Below(unsigned bound) { return Byte() % bound; }

  // Returns up to `max` bytes. The next byte determines how many.
  std::string Text(std::size_t max) {
    const std::size_t wanted = Byte() * max / 255;
    std::string text;
    while (text.size() < wanted && !empty())
      text += static_cast<char>(Byte());
    return text;
  }

  // Returns all remaining bytes.
  std::string Rest() {
    std::string text(next_, end_);
    next_ = end_;
    return text;
  }

 private:
  const std::uint8_t* next_;
  const std::uint8_t* end_;
};
