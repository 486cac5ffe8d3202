#include "cli/certificates/key_usage.h"

namespace cardcert::cli {
namespace {

struct Usage {
  int bit;  // as in cert_key_usage()
  const char* name;
};

constexpr Usage kUsages[] = {
    {128, "digitalSignature"},
    {64, "nonRepudiation"},
    {32, "keyEncipherment"},
    {16, "dataEncipherment"},
    {8, "keyAgreement"},
    {4, "keyCertSign"},
    {2, "cRLSign"},
    {1, "encipherOnly"},
    {32768, "decipherOnly"},
};

}  // namespace

std::vector<std::string> KeyUsageNames(int key_usage) {
  std::vector<std::string> names;
  for (const Usage& usage : kUsages) {
    if (key_usage & usage.bit)
      names.emplace_back(usage.name);
  }
  return names;
}

std::string KeyUsageText(int key_usage) {
  if (key_usage == -1)
    return "any";
  std::string text;
  for (const std::string& name : KeyUsageNames(key_usage))
    text += (text.empty() ? "" : ", ") + name;
  return text.empty() ? "none" : text;
}

}  // namespace cardcert::cli
