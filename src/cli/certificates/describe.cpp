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

}  // namespace cardcert::cli
