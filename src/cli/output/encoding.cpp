#include "cli/output/encoding.h"

#include <openssl/evp.h>

#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

std::string Base64Lines(const std::vector<unsigned char>& bytes) {
  constexpr std::size_t kBytesPerLine = 48;
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += kBytesPerLine) {
    const std::size_t length = std::min(kBytesPerLine, bytes.size() - i);
    unsigned char line[kBytesPerLine / 3 * 4 + 1] = {};
    const int line_len = EVP_EncodeBlock(line, bytes.data() + i, static_cast<int>(length));
    text.append(line, line + line_len);
    text += '\n';
  }
  return text;
}

}  // namespace

const std::vector<std::string>& EncodingNames() {
  static const std::vector<std::string> names = {"raw", "base64", "hex"};
  return names;
}

std::string Encode(const std::vector<unsigned char>& bytes, const std::string& encoding) {
  if (encoding == "hex")
    return Hex(bytes.data(), bytes.size()) + "\n";
  if (encoding == "base64")
    return Base64Lines(bytes);
  return std::string(bytes.begin(), bytes.end());
}

}  // namespace cardcert::cli
