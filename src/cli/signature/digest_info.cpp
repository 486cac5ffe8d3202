#include "cli/signature/digest_info.h"

#include <openssl/evp.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>

#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

using Bytes = std::vector<unsigned char>;

// The DER encoding of a DigestInfo up to the hash (RFC 8017, section 9.2, note 1).
struct Digest {
  const char* name;
  Bytes prefix;
};

const std::vector<Digest>& Digests() {
  static const std::vector<Digest> digests = {
      {"sha256",
       {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01,
        0x05, 0x00, 0x04, 0x20}},
      {"sha384",
       {0x30, 0x41, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02,
        0x05, 0x00, 0x04, 0x30}},
      {"sha512",
       {0x30, 0x51, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03,
        0x05, 0x00, 0x04, 0x40}},
      {"sha224",
       {0x30, 0x2d, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x04,
        0x05, 0x00, 0x04, 0x1c}},
      {"sha1",
       {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e, 0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14}},
  };
  return digests;
}

// The longest RSA modulus that the component supports. Data to sign is shorter than that.
constexpr std::size_t kMaxPlainLength = 8192;

struct FileCloser {
  void operator()(std::FILE* file) const {
    if (file != stdin)
      std::fclose(file);
  }
};

std::string NameOf(const std::string& path) {
  return path == "-" ? "standard input" : Quoted(path);
}

// Passes the file to `consume` in pieces, until that returns false. Prints an error if the file
// cannot be read. Returns true if all of it was read and consumed.
bool ReadFile(const std::string& path,
              const std::function<bool(const unsigned char*, std::size_t)>& consume) {
  const std::unique_ptr<std::FILE, FileCloser> file(path == "-" ? stdin
                                                                : std::fopen(path.c_str(), "rbe"));
  bool read_whole = file != nullptr;
  bool wanted = true;
  while (read_whole && wanted && !std::feof(file.get())) {
    unsigned char piece[65536];
    const std::size_t length = std::fread(piece, 1, sizeof piece, file.get());
    read_whole = std::ferror(file.get()) == 0;
    wanted = consume(piece, length);
  }
  if (!read_whole)
    PrintError("cannot read " + NameOf(path) + ": " + std::strerror(errno));
  return read_whole && wanted;
}

std::optional<Bytes> ReadPlain(const std::string& path) {
  Bytes data;
  const bool read = ReadFile(path, [&](const unsigned char* piece, std::size_t length) {
    data.insert(data.end(), piece, piece + length);
    if (data.size() <= kMaxPlainLength)
      return true;
    PrintError(NameOf(path) + " is too long to be signed without a digest");
    return false;
  });
  return read ? std::optional(data) : std::nullopt;
}

struct ContextFree {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

std::optional<Bytes> ReadHashed(const std::string& path, const Digest& digest) {
  const std::unique_ptr<EVP_MD_CTX, ContextFree> context(EVP_MD_CTX_new());
  bool good = EVP_DigestInit_ex(context.get(), EVP_get_digestbyname(digest.name), nullptr) == 1;
  if (good &&
      !ReadFile(path,
                [&](const unsigned char* piece, std::size_t length) {
                  good = EVP_DigestUpdate(context.get(), piece, length) == 1;
                  return good;
                }) &&
      good)
    return std::nullopt;
  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned int hash_len = 0;
  if (!good || EVP_DigestFinal_ex(context.get(), hash, &hash_len) != 1) {
    PrintError(std::string("the digest ") + digest.name + " is not available");
    return std::nullopt;
  }
  Bytes digest_info = digest.prefix;
  digest_info.insert(digest_info.end(), hash, hash + hash_len);
  return digest_info;
}

}  // namespace

const std::vector<std::string>& DigestNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const Digest& digest : Digests())
      all.emplace_back(digest.name);
    all.emplace_back("none");
    return all;
  }();
  return names;
}

std::optional<std::vector<unsigned char>> ReadDataToSign(const std::string& path,
                                                         const std::string& digest) {
  for (const Digest& known : Digests()) {
    if (digest == known.name)
      return ReadHashed(path, known);
  }
  return ReadPlain(path);
}

}  // namespace cardcert::cli
