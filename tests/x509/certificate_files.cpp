#include "certificate_files.h"

#include <algorithm>
#include <filesystem>

#include "support/files.h"

namespace {

// Decodes the first block of a PEM file (RFC 7468).
std::string FromPem(const std::string& pem) {
  const std::string kBegin = "-----BEGIN CERTIFICATE-----";
  const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string octets;
  unsigned bits = 0;
  int num_bits = 0;
  for (std::size_t i = pem.find(kBegin) + kBegin.size(); i < pem.size(); ++i) {
    if (pem[i] == '=' || pem[i] == '-')
      break;
    const std::size_t digit = kAlphabet.find(pem[i]);
    if (digit == std::string::npos)
      continue;
    bits = bits << 6 | static_cast<unsigned>(digit);
    num_bits += 6;
    if (num_bits >= 8) {
      num_bits -= 8;
      octets += static_cast<char>(bits >> num_bits & 0xff);
    }
  }
  return octets;
}

}  // namespace

std::vector<CertificateFile> CertificatesIn(const std::string& folder) {
  std::vector<CertificateFile> files;
  std::error_code none_there;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, none_there)) {
    if (entry.is_regular_file())
      files.push_back({entry.path().string(), support::ReadFile(entry.path().string())});
  }
  std::sort(files.begin(), files.end(),
            [](const CertificateFile& a, const CertificateFile& b) { return a.path < b.path; });
  return files;
}

std::vector<CertificateFile> DebianRoots() {
  std::vector<CertificateFile> roots;
  for (const CertificateFile& file : CertificatesIn(kDebianRootsFolder)) {
    if (file.der.find("-----BEGIN CERTIFICATE-----") != std::string::npos)
      roots.push_back({file.path, FromPem(file.der)});
  }
  return roots;
}
