#include "host/x509/text_writer.h"

namespace cardcert::x509 {

void TextWriter::PutHex(unsigned char octet) {
  static const char kDigits[] = "0123456789ABCDEF";
  Put(kDigits[octet >> 4]);
  Put(kDigits[octet & 0x0fU]);
}

void TextWriter::PutUtf8(std::uint32_t code_point) {
  const auto put = [this](std::uint32_t octet) { Put(static_cast<char>(octet)); };
  if (code_point < 0x80) {
    put(code_point);
    return;
  }
  if (code_point < 0x800) {
    put(0xc0 | code_point >> 6);
  } else {
    if (code_point < 0x10000) {
      put(0xe0 | code_point >> 12);
    } else {
      put(0xf0 | code_point >> 18);
      put(0x80 | (code_point >> 12 & 0x3f));
    }
    put(0x80 | (code_point >> 6 & 0x3f));
  }
  put(0x80 | (code_point & 0x3f));
}

}  // namespace cardcert::x509
