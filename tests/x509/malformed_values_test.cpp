// Malformed integers, bit strings, object identifiers and times.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

Certificate WithParameters(const std::string& parameters) {
  Certificate certificate;
  certificate.signed_algorithm = der::Algorithm("1.2.840.113549.1.1.11", parameters);
  return certificate;
}

TEST(Malformed, RefusesEmptyAndNonMinimalIntegers) {
  const std::pair<std::string, Reason> integers[] = {
      {"", Reason::kIntegerEmpty},
      {Bytes("\x00\x00"), Reason::kIntegerNotMinimal},
      {Bytes("\x00\x7f"), Reason::kIntegerNotMinimal},
      {Bytes("\x00\x01\x01"), Reason::kIntegerNotMinimal},
      {"\xff\x80", Reason::kIntegerNotMinimal},
      {"\xff\xff", Reason::kIntegerNotMinimal}};
  for (const auto& [contents, reason] : integers) {
    const std::string integer = der::Integer(contents);
    EXPECT_EQ(ParseCode(Certificate().Serial(contents).Der()), CodeOf(reason));
    Certificate version;
    version.version = der::Context(0, integer);
    EXPECT_EQ(ParseCode(version.Der()), CodeOf(reason));
    EXPECT_EQ(ParseCode(WithParameters(integer).Der()), CodeOf(reason));
    const Parsed path_length(
        Certificate().Add(der::BasicConstraints(der::Boolean(0xff) + integer)).Der());
    EXPECT_EQ(path_length.IsCa(), -CodeOf(reason));
    Certificate key;
    key.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1"),
                                    der::Sequence(der::Unsigned("\xc1"), integer));
    EXPECT_EQ(Parsed(key.Der()).Exponent().code, CodeOf(reason));
  }
}

const std::pair<std::string, Reason> kBadBitStrings[] = {
    {der::Tlv(0x03, ""), Reason::kBitStringEmpty},
    {der::BitString("\x80", 8), Reason::kBitStringUnusedBits},
    {der::BitString("\x80", 255), Reason::kBitStringUnusedBits},
    {der::BitString("", 1), Reason::kBitStringUnusedInEmpty},
    {der::BitString("", 7), Reason::kBitStringUnusedInEmpty},
    {der::BitString("\x81", 1), Reason::kBitStringPadding},
    {der::BitString("\xff", 7), Reason::kBitStringPadding}};

TEST(Malformed, RefusesInvalidUnusedBits) {
  for (const auto& [bits, reason] : kBadBitStrings) {
    Certificate signature;
    signature.signature = bits;
    EXPECT_EQ(ParseCode(signature.Der()), CodeOf(reason));
    Certificate key;
    key.public_key = der::Sequence(der::Algorithm("1.2.3"), bits);
    EXPECT_EQ(ParseCode(key.Der()), CodeOf(reason));
    EXPECT_EQ(ParseCode(WithSubject(NameOf(bits)).Der()), CodeOf(reason));
    EXPECT_EQ(ParseCode(WithParameters(bits).Der()), CodeOf(reason));
    const Parsed usage(Certificate().Add(der::KeyUsageExtension(bits)).Der());
    EXPECT_EQ(usage.KeyUsageCode(), CodeOf(reason));
    EXPECT_EQ(usage.KeyUsage(), 0);
  }
}

TEST(Malformed, RefusesUnusedBitsInSignatureAndKey) {
  for (int num_unused_bits = 1; num_unused_bits <= 7; ++num_unused_bits) {
    const std::string bits = der::BitString("\x80", num_unused_bits);
    Certificate signature;
    signature.signature = bits;
    EXPECT_EQ(ParseCode(signature.Der()), CodeOf(Reason::kSignatureUnusedBits));
    Certificate key;
    key.public_key = der::Sequence(der::Algorithm("1.2.3"), bits);
    EXPECT_EQ(ParseCode(key.Der()), CodeOf(Reason::kKeyUnusedBits));
  }
}

TEST(Malformed, RefusesDifferentSignatureAlgorithms) {
  const std::string oid = "1.2.840.113549.1.1.11";
  const std::string algorithms[] = {
      der::Algorithm(oid), der::Algorithm(oid, ""), der::Algorithm(oid, der::Sequence()),
      der::Algorithm(oid, der::Sequence(der::Null())), der::Algorithm("1.2.840.113549.1.1.12")};
  for (const std::string& inner : algorithms) {
    for (const std::string& outer : algorithms) {
      Certificate certificate;
      certificate.signed_algorithm = inner;
      certificate.outer_algorithm = outer;
      EXPECT_EQ(ParseCode(certificate.Der()),
                inner == outer ? 0 : CodeOf(Reason::kAlgorithmsDiffer));
    }
  }
}

TEST(Malformed, RefusesEmptyTruncatedAndPaddedOids) {
  const std::pair<std::string, Reason> oids[] = {{"", Reason::kOidEmpty},
                                                 {"\x80", Reason::kOidNotMinimal},
                                                 {"\x2a\x80\x01", Reason::kOidNotMinimal},
                                                 {"\x81", Reason::kOidCutShort},
                                                 {"\x2a\x86\x48\x86", Reason::kOidCutShort}};
  for (const auto& [contents, reason] : oids) {
    const std::string oid = der::Tlv(0x06, contents);
    Certificate algorithm;
    algorithm.signed_algorithm = der::Sequence(oid);
    EXPECT_EQ(ParseCode(algorithm.Der()), CodeOf(reason));
    EXPECT_EQ(ParseCode(WithParameters(oid).Der()), CodeOf(reason));
    EXPECT_EQ(
        ParseCode(WithSubject(der::Sequence(der::Set(der::Sequence(oid, der::Utf8("x"))))).Der()),
        CodeOf(reason));
    EXPECT_EQ(ParseCode(Certificate().Add(der::Sequence(oid, der::OctetString("x"))).Der()),
              CodeOf(reason));
  }
}

TEST(Malformed, DistinguishesOidArcsBeyond64Bits) {
  // 2.5.4.(3 + 2^64) is not commonName.
  const std::string type =
      der::Tlv(0x06, Bytes("\x55\x04\x82\x80\x80\x80\x80\x80\x80\x80\x80\x03"));
  const Parsed cert(
      WithSubject(der::Sequence(der::Set(der::Sequence(type, der::Utf8("x"))))).Der());
  EXPECT_EQ(cert.SubjectAttr("commonName").code, -2);
  EXPECT_EQ(cert.SubjectAttr("2.5.4.3").code, -2);
  EXPECT_EQ(cert.SubjectAttr("2.5.4.18446744073709551619").text, "x");
  // 2.5.29.(15 + 2^64) is not key usage.
  const std::string usage =
      der::Tlv(0x06, Bytes("\x55\x1d\x82\x80\x80\x80\x80\x80\x80\x80\x80\x0f"));
  EXPECT_EQ(
      Parsed(Certificate().Add(der::Sequence(usage, der::OctetString(der::KeyUsageBits(4)))).Der())
          .KeyUsageCode(),
      -2);
  // 2.5.29.(19 + 2^64) is not basic constraints.
  const std::string constraints =
      der::Tlv(0x06, Bytes("\x55\x1d\x82\x80\x80\x80\x80\x80\x80\x80\x80\x13"));
  const std::string yes = der::OctetString(der::Sequence(der::Boolean(0xff)));
  EXPECT_EQ(Parsed(Certificate().Add(der::Sequence(constraints, yes)).Der()).IsCa(), 0);
  // 1.2.840.113549.1.1.(1 + 2^64) is not rsaEncryption.
  const std::string algorithm = der::Tlv(0x06, Bytes("\x2a\x86\x48\x86\xf7\x0d\x01\x01\x82\x80\x80"
                                                     "\x80\x80\x80\x80\x80\x80\x01"));
  Certificate key;
  key.public_key = der::PublicKey(der::Sequence(algorithm, der::Null()),
                                  der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")));
  EXPECT_EQ(Parsed(key.Der()).Modulus().code, CodeOf(Reason::kNotRsa));
}

TEST(Malformed, DoesNotMatchOidPrefixes) {
  for (const char* oid : {"2.5.29", "2.5.29.15.0", "2.5.29.15.1", "2.5.29.1", "2.5.29.150"}) {
    const Parsed cert(Certificate().Add(der::Extension(oid, der::KeyUsageBits(4))).Der());
    EXPECT_EQ(cert.KeyUsageCode(), -2) << oid;
  }
  for (const char* oid : {"2.5.29", "2.5.29.19.0", "2.5.29.190"}) {
    const std::string yes = der::Sequence(der::Boolean(0xff));
    EXPECT_EQ(Parsed(Certificate().Add(der::Extension(oid, yes)).Der()).IsCa(), 0) << oid;
  }
  for (const char* oid : {"2.5.4", "2.5.4.3.0", "2.5.4.30"})
    EXPECT_EQ(Parsed(Certificate().Subject({{oid, "x"}}).Der()).SubjectAttr("CN").code, -2) << oid;
}

using MakeTime = std::string (*)(const std::string& text);

// Expects the time to be refused as the first and as the second time of the validity.
void ExpectTimeRefused(const std::string& time, Reason reason, const std::string& what) {
  const std::string good = der::Utc("260101000000Z");
  Certificate first;
  first.validity = der::Sequence(time, good);
  EXPECT_EQ(ParseCode(first.Der()), CodeOf(reason)) << "first: " << what;
  Certificate second;
  second.validity = der::Sequence(good, time);
  EXPECT_EQ(ParseCode(second.Der()), CodeOf(reason)) << "second: " << what;
}

TEST(Malformed, RefusesTimesOfOtherForm) {
  const std::pair<MakeTime, std::string> times[] = {{der::Utc, "260101000000Z"},
                                                    {der::Generalized, "20260101000000Z"}};
  for (const auto& [make, good] : times) {
    Certificate certificate;
    certificate.validity = der::Sequence(make(good), make(good));
    ASSERT_EQ(ParseCode(certificate.Der()), 0);
    // Replaces each octet by one that is not allowed in its place.
    for (std::size_t i = 0; i < good.size(); ++i) {
      for (const char c : {' ', '/', ':', '-', '\0', 'Z', '\xb0'}) {
        std::string text = good;
        text[i] = c;
        if (text != good)
          ExpectTimeRefused(make(text), Reason::kTimeForm, text);
      }
    }
  }
}

TEST(Malformed, RefusesTimesOutOfRange) {
  for (const char* text : {"261301000000Z", "260001000000Z", "260132000000Z", "260101240000Z",
                           "260101006000Z", "260101000060Z", "260101000099Z"}) {
    ExpectTimeRefused(der::Utc(text), Reason::kTimeRange, text);
    const std::string with_century = std::string("20") + text;
    ExpectTimeRefused(der::Generalized(with_century), Reason::kTimeRange, with_century);
  }
}

}  // namespace
