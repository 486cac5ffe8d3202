#include "cli/certificates/describe.h"

namespace cardcert::cli {

std::string NameText(const pkcs11_certificate& record) {
  std::string text;
  for (const std::string& piece : record.presentable_name) {
    if (!text.empty())
      text += " / ";
    text += piece.empty() ? "-" : piece;
  }
  return text;
}

unsigned long KeyBits(const pkcs11_certificate& record) {
  return record.modulus_len * 8 & ~15UL;
}

}  // namespace cardcert::cli
