// What holds of every certificate, tried on those in use.
#include <gtest/gtest.h>

#include <algorithm>

#include "ask_host.h"
#include "certificate_files.h"
#include "der_writer.h"
#include "parsed.h"

namespace {

int Parse(const unsigned char* octets, std::size_t size, certificate* cert) {
  return cert_parse(octets, static_cast<int>(size), cert);
}

class DebiansRoots : public testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(roots_.empty()) << "install the package ca-certificates"; }

  const std::vector<CertificateFile> roots_ = DebianRoots();
};

TEST_F(DebiansRoots, AreRefusedWhenCutShortAnywhere) {
  const std::unique_ptr<certificate, void (*)(certificate*)> cert(cert_alloc(), cert_free);
  for (const CertificateFile& root : roots_) {
    for (std::size_t size = 0; size < root.der.size(); ++size) {
      // A heap copy of the exact size shows reads beyond the end.
      const std::unique_ptr<unsigned char[]> octets(new unsigned char[size]);
      root.der.copy(reinterpret_cast<char*>(octets.get()), size);
      ASSERT_NE(Parse(octets.get(), size, cert.get()), 0) << root.path << " cut to " << size;
    }
  }
}

TEST_F(DebiansRoots, AreRefusedWithAnythingButPaddingBehindThem) {
  for (const CertificateFile& root : roots_) {
    for (int octet = 0; octet < 256; ++octet) {
      const bool padding = octet == 0x00 || octet == 0xff;
      const std::string one = root.der + static_cast<char>(octet);
      EXPECT_EQ(Parsed(one).code(), padding ? 0 : CodeOf(Reason::kTrailingOctets)) << octet;
      const std::string behind_zeros = root.der + std::string(20, '\0') + static_cast<char>(octet);
      EXPECT_EQ(Parsed(behind_zeros).code(), octet == 0x00 ? 0 : CodeOf(Reason::kTrailingOctets));
      const std::string behind_ff = root.der + std::string(20, '\xff') + static_cast<char>(octet);
      EXPECT_EQ(Parsed(behind_ff).code(), octet == 0xff ? 0 : CodeOf(Reason::kTrailingOctets));
    }
  }
}

// The smallest, the largest and the one in the middle.
std::vector<std::string> ARepresentativeFew(const std::vector<CertificateFile>& roots) {
  std::vector<std::string> all;
  for (const CertificateFile& root : roots)
    all.push_back(root.der);
  std::sort(all.begin(), all.end(),
            [](const std::string& a, const std::string& b) { return a.size() < b.size(); });
  return {all.front(), all[all.size() / 2], all.back()};
}

// A changed octet is refused, or it changes no answer but those that are made of it. The answers
// that a single octet may change are those whose octets hold it; here: at most the answers of one
// field, and never a mixture of several.
TEST_F(DebiansRoots, WithOneOctetChangedAreRefusedOrDifferInOneFieldAlone) {
  const std::vector<std::string> words = {"commonName", "organizationName", "countryName"};
  for (const std::string& der : ARepresentativeFew(roots_)) {
    const HostAnswers before = AskOurs(der, words);
    for (std::size_t i = 0; i < der.size(); ++i) {
      for (int change = 1; change < 256; ++change) {
        // All changes of the first octets of the certificate, then those of a single bit and a few
        // more: what is opaque (signature, key) is long and much the same.
        const bool single_bit = (change & (change - 1)) == 0;
        if (i >= 64 && !single_bit && change != 0xff)
          continue;
        std::string changed = der;
        changed[i] = static_cast<char>(changed[i] ^ change);
        const HostAnswers after = AskOurs(changed, words);
        if (after.parse_code != 0)
          continue;
        int num_fields = 0;
        num_fields += after.serial == before.serial ? 0 : 1;
        num_fields += after.key_usage == before.key_usage ? 0 : 1;
        num_fields += after.is_ca == before.is_ca ? 0 : 1;
        num_fields += after.modulus == before.modulus && after.exponent == before.exponent ? 0 : 1;
        num_fields +=
            after.subject == before.subject && after.subject_attrs == before.subject_attrs ? 0 : 1;
        num_fields += after.issuer_attrs == before.issuer_attrs ? 0 : 1;
        EXPECT_LE(num_fields, 1) << "octet " << i << " changed by " << change;
      }
    }
  }
}

// The words for attribute types are looked up, so the locale and what was asked before must not
// matter.
TEST_F(DebiansRoots, AnswerTheSameEachTime) {
  const std::vector<std::string> words = {"commonName", "CN", "2.5.4.3"};
  for (const CertificateFile& root : roots_) {
    const HostAnswers first = AskOurs(root.der, words);
    const HostAnswers second = AskOurs(root.der, words);
    EXPECT_TRUE(first.subject == second.subject && first.serial == second.serial) << root.path;
    EXPECT_EQ(first.subject_attrs[0].text, first.subject_attrs[1].text);
    EXPECT_EQ(first.subject_attrs[0].text, first.subject_attrs[2].text);
  }
}

}  // namespace
