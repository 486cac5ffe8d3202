// Room for a text that the certificate library writes.
#pragma once

#include <cstring>
#include <string>

namespace cardcert::detail {

template <unsigned long kSize>
class TextBuffer {
 public:
  char* data() { return bytes_; }
  unsigned long size() const { return kSize; }

  // What was written last, up to its terminator; the end of the buffer serves as one, should the
  // library have left it out.
  std::string text() const { return std::string(bytes_, strnlen(bytes_, kSize)); }

 private:
  char bytes_[kSize] = {};
};

}  // namespace cardcert::detail
