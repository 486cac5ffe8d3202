// What the fuzz targets share. A target is a file NAME_fuzz.cpp that defines LLVMFuzzerTestOneInput
// and aborts, through Check(), when a property does not hold; its inputs lie in corpus/NAME.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline void Check(bool holds, const char* property) {
  if (holds)
    return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

// Takes an input apart from its beginning. After its end there are only zeros and empty texts.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

  bool empty() const { return next_ == end_; }

  std::uint8_t Byte() { return empty() ? std::uint8_t{0} : *next_++; }

  // A number below `bound`, which is at most 256.
  unsigned Below(unsigned bound) { return Byte() % bound; }

  // Up to `max` bytes, one of the input tells how many.
  std::string Text(std::size_t max) {
    const std::size_t wanted = Byte() * max / 255;
    std::string text;
    while (text.size() < wanted && !empty())
      text += static_cast<char>(Byte());
    return text;
  }

  // All that is left.
  std::string Rest() {
    std::string text(next_, end_);
    next_ = end_;
    return text;
  }

 private:
  const std::uint8_t* next_;
  const std::uint8_t* end_;
};
