// Forms that are accepted: encodings that break a DER rule but occur in practice, and optional
// parts.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Tolerance, AcceptsExplicitCaFalse) {
  EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(der::Boolean(0))).Der()).IsCa(), 0);
}

TEST(Tolerance, AcceptsKeyUsageWithTrailingZeroBits) {
  const Parsed cert(
      Certificate().Add(der::KeyUsageExtension(der::BitString(Bytes("\x06\x00"), 0))).Der());
  EXPECT_EQ(cert.KeyUsageCode(), 0);
  EXPECT_EQ(cert.KeyUsage(), 4 | 2);
}

TEST(Tolerance, AcceptsAnyCharacterInPrintableString) {
  const Parsed cert(WithSubject(NameOf(der::Printable("*.a_b@c & d\xe9"))).Der());
  EXPECT_EQ(cert.SubjectAttr("CN").text, "*.a_b@c & d\xc3\xa9");
}

TEST(Tolerance, AcceptsExplicitCriticalFalse) {
  const std::string value = der::KeyUsageBits(128);
  const Parsed cert(Certificate().Add(der::Extension("2.5.29.15", value, der::Boolean(0))).Der());
  EXPECT_EQ(cert.KeyUsage(), 128);
}

TEST(Tolerance, AcceptsBooleanTrueOtherThanFF) {
  EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(der::Boolean(1))).Der()).IsCa(), 1);
  const std::string value = der::KeyUsageBits(128);
  const Parsed cert(Certificate().Add(der::Extension("2.5.29.15", value, der::Boolean(1))).Der());
  EXPECT_EQ(cert.KeyUsage(), 128);
}

TEST(Tolerance, AcceptsPaddingOfAllZerosOrAllFF) {
  for (const std::size_t size : {1U, 2U, 3U, 1000U}) {
    for (const char filler : {'\x00', '\xff'}) {
      Certificate certificate;
      certificate.padding = std::string(size, filler);
      EXPECT_EQ(Parsed(certificate.Der()).code(), 0) << size;
    }
  }
}

TEST(Tolerance, AcceptsEmptyIssuer) {
  Certificate certificate;
  certificate.issuer = der::Sequence();
  const Parsed cert(certificate.Der());
  EXPECT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.IssuerAttr("CN").code, -2);
}

TEST(Versions, AcceptsVersions1And2WithoutExtensions) {
  for (const std::string& version : {std::string(), der::Context(0, der::Integer("\x01"))}) {
    Certificate certificate;
    certificate.version = version;
    const Parsed cert(certificate.Der());
    ASSERT_EQ(cert.code(), 0);
    EXPECT_EQ(cert.IsCa(), 0);
    EXPECT_EQ(cert.KeyUsageCode(), -2);
  }
}

TEST(UniqueIds, AreIgnored) {
  for (const bool issuer : {false, true}) {
    for (const bool subject : {false, true}) {
      Certificate certificate;
      certificate.issuer_unique_id = issuer ? der::Tlv(0x81, Bytes("\x00i")) : "";
      certificate.subject_unique_id = subject ? der::Tlv(0x82, Bytes("\x00s")) : "";
      EXPECT_EQ(Parsed(certificate.Ca(true).Der()).IsCa(), 1);
    }
  }
}

TEST(Times, AcceptsEveryAllowedForm) {
  for (const std::string& time :
       {der::Utc("000229235959Z"), der::Utc("491231000000Z"), der::Utc("500101000000Z"),
        der::Generalized("20000229000000Z"), der::Generalized("99991231235959Z"),
        der::Generalized("20200101000000Z"), der::Generalized("00000101000000Z")}) {
    Certificate certificate;
    certificate.validity = der::Sequence(time, time);
    EXPECT_EQ(Parsed(certificate.Der()).code(), 0) << time;
  }
}

TEST(AlgorithmParameters, MayHaveAnyType) {
  for (const std::string& parameters :
       {std::string(), der::Null(), der::Oid("1.2.3"), der::Sequence(), der::Sequence("opaque"),
        der::Set(), der::OctetString("x"), der::Integer("\x01"), der::Boolean(0xff),
        der::BitString("x"), der::Context(0, "opaque"), der::Tlv(0x80, ""), der::Tlv(0x41, "x")}) {
    Certificate certificate;
    certificate.signed_algorithm = der::Algorithm("1.2.3", parameters);
    EXPECT_EQ(Parsed(certificate.Der()).code(), 0);
  }
}

}  // namespace
