// The state of a record: empty, parsed, and after a failure.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Parse, AnswersEveryQuery) {
  const Parsed cert(Certificate()
                        .Serial(Bytes("\x00\x8f\x01"))
                        .Issuer({{"C", "XX"}, {"CN", "Issuer"}})
                        .Subject({{"C", "YY"}, {"O", "Test"}, {"CN", "Alice"}})
                        .Rsa("\xc0\x01", {1, 0, 1})
                        .KeyUsage(128 | 64)
                        .Ca(false)
                        .Der());
  ASSERT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.Subject().text, "CN=Alice,O=Test,C=YY");
  EXPECT_EQ(cert.SubjectAttr("commonName").text, "Alice");
  EXPECT_EQ(cert.IssuerAttr("commonName").text, "Issuer");
  EXPECT_EQ(cert.IsCa(), 0);
  EXPECT_EQ(cert.Serial().octets, Bytes("\x00\x8f\x01"));
  EXPECT_EQ(cert.KeyUsageCode(), 0);
  EXPECT_EQ(cert.KeyUsage(), 128 | 64);
  EXPECT_EQ(cert.Exponent().octets, Bytes("\x01\x00\x01"));
  EXPECT_EQ(cert.Modulus().octets, "\xc0\x01");
}

class Record : public testing::Test {
 protected:
  Record() : cert_(cert_alloc()) {}
  ~Record() override { cert_free(cert_); }

  int Parse(const std::string& der) {
    return cert_parse(reinterpret_cast<const unsigned char*>(der.data()),
                      static_cast<int>(der.size()), cert_);
  }
  std::string Subject() {
    char text[100] = "?";
    cert_subject(cert_, text, sizeof text);
    return text;
  }

  certificate* cert_;
};

TEST_F(Record, CanBeFreedEmptyOrNull) {
  cert_free(nullptr);
}

TEST_F(Record, AnswersNothingWhileEmpty) {
  const int code = CodeOf(Reason::kNothingParsed);
  char text[10] = "?";
  unsigned char octets[10] = {};
  unsigned long length = sizeof octets;
  unsigned long other_length = sizeof octets;
  int usage = 12345;
  EXPECT_EQ(cert_subject(cert_, text, sizeof text), code);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(cert_subject_attr(cert_, "CN", text, sizeof text), code);
  EXPECT_EQ(cert_issuer_attr(cert_, "CN", text, sizeof text), code);
  EXPECT_EQ(cert_is_ca(cert_), -code);
  EXPECT_EQ(cert_serial(cert_, octets, &length), code);
  EXPECT_EQ(cert_key_usage(cert_, &usage), code);
  EXPECT_EQ(usage, 0);
  EXPECT_EQ(cert_rsa_public_key_components(cert_, octets, &length, octets, &other_length), code);
  EXPECT_EQ(length, sizeof octets);
  EXPECT_EQ(other_length, sizeof octets);
}

TEST_F(Record, IsEmptyAfterFailedParse) {
  EXPECT_NE(Parse("x"), 0);
  EXPECT_EQ(cert_is_ca(cert_), -CodeOf(Reason::kNothingParsed));
}

TEST_F(Record, ReplacesOldCertificate) {
  ASSERT_EQ(Parse(Certificate().Subject({{"CN", "old"}}).KeyUsage(4).Ca(true).Der()), 0);
  ASSERT_EQ(Parse(Certificate().Subject({{"CN", "new"}}).Der()), 0);
  int usage = 0;
  EXPECT_EQ(Subject(), "CN=new");
  EXPECT_EQ(cert_is_ca(cert_), 0);
  EXPECT_EQ(cert_key_usage(cert_, &usage), -2);
}

TEST_F(Record, KeepsOldCertificateIfNewOneIsRefused) {
  ASSERT_EQ(Parse(Certificate().Subject({{"CN", "old"}}).Der()), 0);
  Certificate refused;
  refused.signature = "";
  EXPECT_EQ(Parse(refused.Der()), CodeOf(Reason::kSignatureType));
  EXPECT_EQ(Subject(), "CN=old");
}

TEST_F(Record, RefusesNegativeLength) {
  const std::string der = Certificate().Der();
  const auto* octets = reinterpret_cast<const unsigned char*>(der.data());
  EXPECT_EQ(cert_parse(octets, -1, cert_), CodeOf(Reason::kInvalidArgument));
  EXPECT_EQ(cert_parse(octets, -2147483647 - 1, cert_), CodeOf(Reason::kInvalidArgument));
}

TEST_F(Record, RefusesNullArguments) {
  const int code = CodeOf(Reason::kInvalidArgument);
  EXPECT_EQ(cert_parse(nullptr, 1, cert_), code);
  EXPECT_EQ(cert_parse(nullptr, 0, cert_), CodeOf(Reason::kCertificateType));
  const std::string der = Certificate().KeyUsage(4).Der();
  EXPECT_EQ(cert_parse(reinterpret_cast<const unsigned char*>(der.data()),
                       static_cast<int>(der.size()), nullptr),
            code);
  ASSERT_EQ(Parse(der), 0);

  char text[10] = "?";
  unsigned char octets[300] = {};
  unsigned long length = sizeof octets;
  int usage = 12345;
  EXPECT_EQ(cert_subject(nullptr, text, sizeof text), code);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(cert_subject(cert_, nullptr, 10), code);
  EXPECT_EQ(cert_subject_attr(cert_, nullptr, text, sizeof text), code);
  EXPECT_EQ(cert_subject_attr(cert_, "CN", nullptr, 10), code);
  EXPECT_EQ(cert_issuer_attr(cert_, nullptr, text, sizeof text), code);
  EXPECT_EQ(cert_issuer_attr(cert_, "CN", nullptr, 10), code);
  EXPECT_EQ(cert_is_ca(nullptr), -code);
  EXPECT_EQ(cert_serial(nullptr, octets, &length), code);
  EXPECT_EQ(cert_serial(cert_, nullptr, &length), code);
  EXPECT_EQ(cert_serial(cert_, octets, nullptr), code);
  EXPECT_EQ(cert_key_usage(cert_, nullptr), code);
  EXPECT_EQ(cert_key_usage(nullptr, &usage), code);
  EXPECT_EQ(usage, 0);
  EXPECT_EQ(cert_rsa_public_key_components(nullptr, octets, &length, octets, &length), code);
  EXPECT_EQ(cert_rsa_public_key_components(cert_, nullptr, &length, octets, &length), code);
  EXPECT_EQ(cert_rsa_public_key_components(cert_, octets, nullptr, octets, &length), code);
  EXPECT_EQ(cert_rsa_public_key_components(cert_, octets, &length, nullptr, &length), code);
  EXPECT_EQ(cert_rsa_public_key_components(cert_, octets, &length, octets, nullptr), code);
}

}  // namespace
