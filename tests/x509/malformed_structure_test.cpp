// Malformed lengths and structures.
#include <gtest/gtest.h>

#include <algorithm>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Malformed, RefusesMoreThanFourLengthOctets) {
  const std::string tbs = der::Sequence(Certificate().TbsFields());
  for (const int num_octets : {5, 6, 7, 8, 9, 16, 126}) {
    EXPECT_EQ(ParseCode(der::TlvWithLongLength(0x30, tbs, num_octets)),
              CodeOf(Reason::kLengthTooLong))
        << num_octets;
    const std::string serial = der::TlvWithLongLength(0x02, "\x01", num_octets);
    Certificate certificate;
    certificate.serial = serial;
    EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kLengthTooLong)) << num_octets;
  }
}

TEST(Malformed, RefusesIndefiniteAndReservedLengths) {
  for (const int tag : {0x02, 0x30, 0x31, 0x03, 0xa0}) {
    for (const std::string& rest : {Bytes(""), Bytes("\x00\x00"), std::string(300, '\x01')}) {
      Certificate certificate;
      const std::string begin(1, static_cast<char>(tag));
      certificate.signed_algorithm = der::Sequence(der::Oid("1.2.3"), begin + "\x80" + rest);
      EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kIndefiniteLength)) << tag;
      certificate.signed_algorithm = der::Sequence(der::Oid("1.2.3"), begin + "\xff" + rest);
      EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kReservedLength)) << tag;
    }
  }
}

TEST(Malformed, RefusesLengthsThatAreNotMinimal) {
  for (const std::size_t size : {0U, 1U, 126U, 127U, 128U, 255U, 256U, 65535U, 65536U}) {
    const std::string contents(size, 's');
    for (int num_octets = 1; num_octets <= 4; ++num_octets) {
      Certificate certificate;
      certificate.signature = der::TlvWithLongLength(0x03, '\0' + contents, num_octets);
      const std::string shortest = der::Tlv(0x03, '\0' + contents);
      const bool fits = (size + 1) >> (8 * num_octets) == 0;
      if (fits) {
        EXPECT_EQ(ParseCode(certificate.Der()),
                  certificate.signature == shortest ? 0 : CodeOf(Reason::kLengthNotMinimal))
            << size;
      }
    }
  }
}

TEST(Malformed, RefusesLengthBeyondInput) {
  const std::string der = Certificate().Der();
  // The outermost length has two octets. Every value larger than the actual length is refused.
  for (std::size_t more = 1; more < 70000 - der.size(); more += 997) {
    const std::size_t length = std::min<std::size_t>(der.size() - 4 + more, 0xffff);
    std::string longer = der;
    longer[2] = static_cast<char>(length >> 8);
    longer[3] = static_cast<char>(length & 0xff);
    EXPECT_EQ(ParseCode(longer), CodeOf(Reason::kContentsCutShort)) << length;
  }
}

TEST(Malformed, RefusesLengthThatOverflows) {
  for (const char* length : {"\x84\xff\xff\xff\xff", "\x84\xff\xff\xff\xfa", "\x84\x80\x01\x01\x01",
                             "\x84\x7f\xff\xff\xff", "\x84\x7f\xff\xff\xfa"}) {
    EXPECT_EQ(ParseCode(std::string("\x30") + length + "\x30"), CodeOf(Reason::kContentsCutShort));
    Certificate certificate;
    certificate.serial = std::string("\x02") + length + "\x01";
    EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kContentsCutShort));
    EXPECT_EQ(ParseCode(WithSubject(NameOf(std::string("\x0c") + length)).Der()),
              CodeOf(Reason::kContentsCutShort));
  }
}

TEST(Malformed, SkipsDeeplyNestedValues) {
  // Built from the inside out, so the headers are collected in reverse order.
  std::string reversed;
  std::size_t size = 0;
  while (size < 900000) {
    const std::string header = "\x30" + der::Length(size);
    reversed.append(header.rbegin(), header.rend());
    size += header.size();
  }
  const std::string nested(reversed.rbegin(), reversed.rend());

  Certificate algorithm;
  algorithm.public_key = der::PublicKey(der::Algorithm("1.2.3", nested), "k");
  EXPECT_EQ(ParseCode(algorithm.Der()), 0);
  EXPECT_EQ(ParseCode(WithSubject(NameOf(nested)).Der()), 0);
  EXPECT_EQ(ParseCode(Certificate().Add(der::Extension("1.2.3", nested)).Der()), 0);
  const Parsed constraints(Certificate().Add(der::Extension("2.5.29.19", nested)).Der());
  EXPECT_EQ(constraints.IsCa(), -CodeOf(Reason::kPathLengthType));
  Certificate key;
  key.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1"), nested);
  EXPECT_EQ(Parsed(key.Der()).Modulus().code, CodeOf(Reason::kRsaIntegerType));
}

TEST(Malformed, RefusesManyEmptyElements) {
  std::string empty_elements;
  for (int i = 0; i < 100000; ++i)
    empty_elements += Bytes("\x30\x00");
  EXPECT_EQ(ParseCode(Certificate().Add(empty_elements).Der()), CodeOf(Reason::kExtensionOidType));
  EXPECT_EQ(ParseCode(WithSubject(der::Sequence(empty_elements)).Der()), CodeOf(Reason::kRdnType));
  EXPECT_EQ(ParseCode(WithSubject(der::Sequence(der::Set(empty_elements))).Der()),
            CodeOf(Reason::kAttributeOidType));
  EXPECT_EQ(ParseCode(der::Sequence(empty_elements)), CodeOf(Reason::kSerialType));
}

TEST(Malformed, DoesNotSkipOptionalFieldWithOtherTag) {
  // An element that is not a version must not be skipped as if the version were absent.
  Certificate certificate;
  certificate.version = der::Integer("\x02");
  EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kAlgorithmType));
  certificate.version = der::Context(1, der::Integer("\x02"));
  EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kSerialType));
  // Extensions with another tag must not be skipped.
  const std::pair<int, Reason> numbers[] = {
      {0, Reason::kTbsTrailing},
      {1, Reason::kConstructed},  // the tags of the unique identifiers
      {2, Reason::kConstructed},
      {4, Reason::kTbsTrailing}};
  for (const auto& [number, reason] : numbers) {
    Certificate other;
    const std::string list = der::Sequence(der::BasicConstraints(der::Boolean(0xff)));
    other.after_extensions = der::Context(number, list);
    EXPECT_EQ(ParseCode(other.Der()), CodeOf(reason)) << number;
  }
  // A critical flag of another type is not skipped.
  EXPECT_EQ(ParseCode(Certificate()
                          .Add(der::Sequence(der::Oid("2.5.29.19"), der::Integer("\x01"),
                                             der::OctetString(der::Sequence())))
                          .Der()),
            CodeOf(Reason::kExtensionValueType));
  // After a pathLenConstraint, cA is a trailing element.
  EXPECT_EQ(
      Parsed(
          Certificate().Add(der::BasicConstraints(der::Integer("\x01") + der::Boolean(0xff))).Der())
          .IsCa(),
      -CodeOf(Reason::kBasicConstraintsTrailing));
}

TEST(Malformed, RefusesTrailingOctetsInEverySequence) {
  const std::string null = der::Null();
  const std::string time = der::Utc("260101000000Z");
  const std::string list = der::Extension("1.2.3", "x");
  struct Place {
    const char* what;
    Reason reason;
    std::string Certificate::*part;
    std::string der;
  };
  const Place places[] = {
      {"version", Reason::kVersionTrailing, &Certificate::version,
       der::Context(0, der::Integer("\x02") + null)},
      {"algorithm", Reason::kAlgorithmTrailing, &Certificate::signed_algorithm,
       der::Sequence(der::Oid("1.2.3"), null, null)},
      {"name", Reason::kRdnType, &Certificate::subject,
       der::Sequence(der::Set(der::Sequence(der::Oid("2.5.4.3"), der::Utf8("x"))), null)},
      {"rdn", Reason::kAttributeType, &Certificate::subject,
       der::Sequence(der::Set(der::Sequence(der::Oid("2.5.4.3"), der::Utf8("x")), null))},
      {"attribute", Reason::kAttributeTrailing, &Certificate::subject,
       der::Sequence(der::Set(der::Sequence(der::Oid("2.5.4.3"), der::Utf8("x"), null)))},
      {"validity", Reason::kValidityTrailing, &Certificate::validity,
       der::Sequence(time, time, null)},
      {"key", Reason::kKeyInfoTrailing, &Certificate::public_key,
       der::Sequence(der::Algorithm("1.2.3"), der::BitString("x"), null)},
      {"key algorithm", Reason::kAlgorithmTrailing, &Certificate::public_key,
       der::Sequence(der::Sequence(der::Oid("1.2.3"), null, null), der::BitString("x"))},
      {"extensions tag", Reason::kExtensionsTrailing, &Certificate::after_extensions,
       der::Context(3, der::Sequence(list) + null)},
      {"extensions", Reason::kExtensionType, &Certificate::after_extensions,
       der::Context(3, der::Sequence(list, null))},
      {"extension", Reason::kExtensionTrailing, &Certificate::after_extensions,
       der::Context(3,
                    der::Sequence(der::Sequence(der::Oid("1.2.3"), der::OctetString("x"), null)))},
      {"tbs", Reason::kTbsTrailing, &Certificate::after_extensions, null},
      {"certificate", Reason::kCertificateTrailing, &Certificate::after_signature, null},
  };
  for (const Place& place : places) {
    Certificate certificate;
    certificate.*place.part = place.der;
    EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(place.reason)) << place.what;
  }
}

TEST(Malformed, RefusesTrailingOctetsInExtensionValue) {
  for (const std::string& trailing :
       {Bytes("\x00"), Bytes("\x00\x00"), der::Null(), der::Sequence()}) {
    const Parsed cert(
        Certificate()
            .Add(der::Extension("2.5.29.19", der::Sequence(der::Boolean(0xff)) + trailing))
            .Add(der::Extension("2.5.29.15", der::KeyUsageBits(4) + trailing))
            .Der());
    EXPECT_EQ(cert.IsCa(), -CodeOf(Reason::kBasicConstraintsTrailing));
    EXPECT_EQ(cert.KeyUsageCode(), CodeOf(Reason::kKeyUsageTrailing));
    EXPECT_EQ(cert.KeyUsage(), 0);
  }
}

}  // namespace
