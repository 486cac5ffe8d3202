// Properties of every certificate, tested with Debian's root certificates.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "ask_host.h"
#include "certificate_files.h"
#include "host/x509/certificate_fields.h"
#include "parsed.h"
#include "support/der_writer.h"

namespace {

namespace x509 = cardcert::x509;

int Parse(const unsigned char* octets, std::size_t size, certificate* cert) {
  return cert_parse(octets, static_cast<int>(size), cert);
}

class RootCertificates : public testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(roots_.empty()) << "install the package ca-certificates"; }

  const std::vector<CertificateFile> roots_ = DebianRoots();
};

TEST_F(RootCertificates, AreRefusedIfTruncated) {
  const std::unique_ptr<certificate, void (*)(certificate*)> cert(cert_alloc(), cert_free);
  for (const CertificateFile& root : roots_) {
    for (std::size_t size = 0; size < root.der.size(); ++size) {
      // A heap copy of the exact size lets AddressSanitizer detect reads beyond the end.
      const std::unique_ptr<unsigned char[]> octets(new unsigned char[size]);
      root.der.copy(reinterpret_cast<char*>(octets.get()), size);
      ASSERT_NE(Parse(octets.get(), size, cert.get()), 0) << root.path << " cut to " << size;
    }
  }
}

TEST_F(RootCertificates, AreRefusedWithTrailingOctetsOtherThanPadding) {
  for (const CertificateFile& root : roots_) {
    for (int octet = 0; octet < 256; ++octet) {
      const bool padding = octet == 0x00 || octet == 0xff;
      const std::string one = root.der + static_cast<char>(octet);
      EXPECT_EQ(Parsed(one).code(), padding ? 0 : CodeOf(Reason::kTrailingOctets)) << octet;
      const std::string after_zeros = root.der + std::string(20, '\0') + static_cast<char>(octet);
      EXPECT_EQ(Parsed(after_zeros).code(), octet == 0x00 ? 0 : CodeOf(Reason::kTrailingOctets));
      const std::string after_ff = root.der + std::string(20, '\xff') + static_cast<char>(octet);
      EXPECT_EQ(Parsed(after_ff).code(), octet == 0xff ? 0 : CodeOf(Reason::kTrailingOctets));
    }
  }
}

// The fields whose answers differ.
struct Difference {
  bool serial, issuer, subject, public_key, extensions;

  Difference(const HostAnswers& a, const HostAnswers& b)
      : serial(!(a.serial == b.serial)),
        issuer(!(a.issuer_attrs == b.issuer_attrs)),
        subject(!(a.subject == b.subject && a.subject_attrs == b.subject_attrs)),
        public_key(!(a.modulus == b.modulus && a.exponent == b.exponent)),
        extensions(!(a.key_usage == b.key_usage && a.is_ca == b.is_ca)) {}
};

// The ranges of the fields in a certificate.
class Layout {
 public:
  explicit Layout(const std::string& der) : begin_(der.data()) {
    x509::Cursor cursor(x509::Bytes{reinterpret_cast<const unsigned char*>(begin_), der.size()});
    x509::Element outer;
    EXPECT_FALSE(ReadElement(&cursor, &outer) || ReadCertificate(outer.value, &fields_));
  }

  // Returns true if changing the octet at `at` may cause this difference.
  bool Explains(const Difference& difference, std::size_t at) const {
    const x509::PublicKey& key = fields_.public_key;
    const bool after_key = at >= End(key.key);
    return (!difference.serial || In(fields_.serial, at)) &&
           (!difference.issuer || In(fields_.issuer, at)) &&
           (!difference.subject || In(fields_.subject, at)) &&
           (!difference.public_key || (at >= Begin(key.algorithm.tlv) && !after_key)) &&
           (!difference.extensions || after_key);
  }

 private:
  std::size_t Begin(x509::Bytes field) const {
    return static_cast<std::size_t>(reinterpret_cast<const char*>(field.data) - begin_);
  }
  std::size_t End(x509::Bytes field) const { return Begin(field) + field.size; }
  bool In(x509::Bytes field, std::size_t at) const { return at >= Begin(field) && at < End(field); }

  const char* begin_;
  x509::CertificateFields fields_;
};

struct ChangeCounts {
  std::atomic<int> refused = 0;
  std::atomic<int> accepted = 0;
};

void ChangeEachOctet(const CertificateFile& root, bool in_every_way, ChangeCounts* counts) {
  const std::vector<std::string> words = {"commonName", "organizationName", "countryName"};
  const HostAnswers before = AskOurs(root.der, words);
  const Layout layout(root.der);
  for (std::size_t at = 0; at < root.der.size(); ++at) {
    for (int change = 1; change < 256; ++change) {
      if (!in_every_way && change != 1 << at % 8 && change != 0xff)
        continue;
      std::string changed = root.der;
      changed[at] = static_cast<char>(changed[at] ^ change);
      const HostAnswers after = AskOurs(changed, words);
      ++(after.parse_code != 0 ? counts->refused : counts->accepted);
      const bool explained =
          after.parse_code != 0 || layout.Explains(Difference(before, after), at);
      EXPECT_TRUE(explained) << root.path << ": octet " << at << " changed by " << change;
    }
  }
}

// A certificate with a changed octet is refused, or only the answers about the field of that octet
// change. Each octet of each root is changed in two ways, or in every way if CARDCERT_EVERY_CHANGE
// is set, which takes minutes.
TEST_F(RootCertificates, OneChangedOctetIsRefusedOrAffectsOneField) {
  const bool in_every_way = std::getenv("CARDCERT_EVERY_CHANGE") != nullptr;
  const std::size_t num_threads = std::max(1U, std::thread::hardware_concurrency());
  ChangeCounts counts;
  std::vector<std::thread> threads;
  for (std::size_t first = 0; first < num_threads; ++first) {
    threads.emplace_back([&, first] {
      for (std::size_t i = first; i < roots_.size(); i += num_threads)
        ChangeEachOctet(roots_[i], in_every_way, &counts);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  std::printf("counted: %d changes of one octet refused\n", counts.refused.load());
  std::printf("counted: %d changes of one octet accepted, affecting one field each\n",
              counts.accepted.load());
}

TEST_F(RootCertificates, GiveTheSameAnswersEachTime) {
  const std::vector<std::string> words = {"commonName", "CN", "2.5.4.3"};
  for (const CertificateFile& root : roots_) {
    const HostAnswers first = AskOurs(root.der, words);
    EXPECT_TRUE(AskOurs(root.der, words) == first) << root.path;
    EXPECT_EQ(first.subject_attrs[0].text, first.subject_attrs[1].text);
    EXPECT_EQ(first.subject_attrs[0].text, first.subject_attrs[2].text);
  }
}

// Until destroyed, sets a locale in which the lower case of "I" is not "i": tr_TR if it is
// installed, otherwise one that the constructor compiles.
class TurkishLocale {
 public:
  TurkishLocale() {
    if (std::setlocale(LC_ALL, "tr_TR.UTF-8") == nullptr && mkdtemp(folder_) != nullptr)
      MakeAndSet();
  }
  ~TurkishLocale() {
    std::setlocale(LC_ALL, "C");
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  TurkishLocale(const TurkishLocale&) = delete;
  TurkishLocale& operator=(const TurkishLocale&) = delete;

  bool works() const { return std::tolower('I') != 'i' && std::toupper('i') != 'I'; }

 private:
  void MakeAndSet() {
    const std::string made = std::string(folder_) + "/tr_TR";
    // The exit status is also 1 after warnings.
    if (std::system(("localedef -i tr_TR -f UTF-8 " + made + " >/dev/null 2>&1").c_str()) == -1)
      return;
    setenv("LOCPATH", folder_, 1);
    std::setlocale(LC_ALL, "tr_TR");
    unsetenv("LOCPATH");
  }

  char folder_[40] = "/tmp/cardcert-locale-XXXXXX";
};

// Words for attribute types are case-insensitive, and the locale must not change what that means.
TEST(Locale, DoesNotAffectAnswers) {
  const std::vector<std::string> words = {
      "INITIALS", "initials",   "TITLE",      "title", "GIVENNAME",   "givenName",
      "2.5.4.43", "COMMONNAME", "commonName", "CN",    "DESCRIPTION", "id-pda-gender"};
  const der::NameText name = {{"C", "TR"},        {"2.5.4.43", "\xc4\xb0I"}, {"title", "i"},
                              {"GN", "\xc4\xb1"}, {"1.2.3", "x, y"},         {"CN", "\xc3\xbc"}};
  std::vector<CertificateFile> certificates = DebianRoots();
  certificates.push_back(
      {"initials and title",
       der::Certificate().Subject(name).Issuer(name).KeyUsage(4).Ca(true).Der()});

  ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
  std::vector<HostAnswers> answers;
  for (const CertificateFile& certificate : certificates)
    answers.push_back(AskOurs(certificate.der, words));
  EXPECT_EQ(answers.back().subject_attrs[0].text, "\xc4\xb0I");
  EXPECT_EQ(answers.back().issuer_attrs[2].text, "i");

  const TurkishLocale turkish;
  if (!turkish.works())
    GTEST_SKIP() << "there is no Turkish locale, and localedef cannot compile one";
  for (std::size_t i = 0; i < certificates.size(); ++i)
    EXPECT_TRUE(AskOurs(certificates[i].der, words) == answers[i]) << certificates[i].path;
}

}  // namespace
