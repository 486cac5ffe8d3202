// What readers of certificates have fallen for, each by its name.
#include <gtest/gtest.h>

#include <algorithm>

#include "parsed.h"
#include "support/der_writer.h"

namespace {

using der::Certificate;

template <std::size_t size>
std::string Z(const char (&octets)[size]) {
  return std::string(octets, size - 1);
}

std::string NameOf(const std::string& value) {
  return der::Sequence(der::Set(der::Attribute("CN", value)));
}

Certificate WithSubject(const std::string& subject) {
  Certificate certificate;
  certificate.subject = subject;
  return certificate;
}

Certificate WithParameters(const std::string& parameters) {
  Certificate certificate;
  certificate.signed_algorithm = der::Algorithm("1.2.840.113549.1.1.11", parameters);
  return certificate;
}

int ParseCode(const std::string& der) {
  return Parsed(der).code();
}

// Lengths.

TEST(Careless, MoreThanFourLengthOctets) {
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

TEST(Careless, FirstLengthOctets80AndFF) {
  for (const int tag : {0x02, 0x30, 0x31, 0x03, 0xa0}) {
    for (const std::string& rest : {Z(""), Z("\x00\x00"), std::string(300, '\x01')}) {
      Certificate certificate;
      const std::string begin(1, static_cast<char>(tag));
      certificate.signed_algorithm = der::Sequence(der::Oid("1.2.3"), begin + "\x80" + rest);
      EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kIndefiniteLength)) << tag;
      certificate.signed_algorithm = der::Sequence(der::Oid("1.2.3"), begin + "\xff" + rest);
      EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kReservedLength)) << tag;
    }
  }
}

TEST(Careless, LeadingZeroLengthOctets) {
  for (const std::size_t size : {0U, 1U, 127U, 128U, 255U, 256U, 65535U, 65536U}) {
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

TEST(Careless, ALengthBeyondWhatIsLeft) {
  const std::string der = Certificate().Der();
  // The outermost length is in two octets; each value beyond the true one is refused.
  for (std::size_t more = 1; more < 70000 - der.size(); more += 997) {
    const std::size_t length = std::min<std::size_t>(der.size() - 4 + more, 0xffff);
    std::string longer = der;
    longer[2] = static_cast<char>(length >> 8);
    longer[3] = static_cast<char>(length & 0xff);
    EXPECT_EQ(ParseCode(longer), CodeOf(Reason::kContentsCutShort)) << length;
  }
}

TEST(Careless, HeaderAndContentsThatOverflow) {
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

// Structure.

TEST(Careless, RecursionOnOpaqueValues) {
  // From the inside out; the headers are collected in reverse.
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

TEST(Careless, ALoopThatDoesNotConsume) {
  std::string empty_elements;
  for (int i = 0; i < 100000; ++i)
    empty_elements += Z("\x30\x00");
  EXPECT_EQ(ParseCode(Certificate().Add(empty_elements).Der()), CodeOf(Reason::kExtensionOidType));
  EXPECT_EQ(ParseCode(WithSubject(der::Sequence(empty_elements)).Der()), CodeOf(Reason::kRdnType));
  EXPECT_EQ(ParseCode(WithSubject(der::Sequence(der::Set(empty_elements))).Der()),
            CodeOf(Reason::kAttributeOidType));
  EXPECT_EQ(ParseCode(der::Sequence(empty_elements)), CodeOf(Reason::kSerialType));
}

TEST(Careless, OptionalFieldsThatShiftLaterOnes) {
  // A version that is none must not be skipped and the serial taken for it.
  Certificate certificate;
  certificate.version = der::Integer("\x02");
  EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kAlgorithmType));
  certificate.version = der::Context(1, der::Integer("\x02"));
  EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kSerialType));
  // Neither may extensions under another tag be skipped.
  const std::pair<int, Reason> numbers[] = {{0, Reason::kTbsTrailing},
                                            {1, Reason::kConstructed},  // the unique identifiers
                                            {2, Reason::kConstructed},
                                            {4, Reason::kTbsTrailing}};
  for (const auto& [number, reason] : numbers) {
    Certificate other;
    const std::string list = der::Sequence(der::BasicConstraints(der::Boolean(0xff)));
    other.after_extensions = der::Context(number, list);
    EXPECT_EQ(ParseCode(other.Der()), CodeOf(reason)) << number;
  }
  // A critical flag of another type is not skipped to the value behind it.
  EXPECT_EQ(ParseCode(Certificate()
                          .Add(der::Sequence(der::Oid("2.5.29.19"), der::Integer("\x01"),
                                             der::OctetString(der::Sequence())))
                          .Der()),
            CodeOf(Reason::kExtensionValueType));
  // A pathLenConstraint in front of cA leaves cA over.
  EXPECT_EQ(
      Parsed(
          Certificate().Add(der::BasicConstraints(der::Integer("\x01") + der::Boolean(0xff))).Der())
          .IsCa(),
      -CodeOf(Reason::kBasicConstraintsTrailing));
}

TEST(Careless, TrailingOctetsInEverySequence) {
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

TEST(Careless, TrailingOctetsInsideTheOctetStringOfAnExtension) {
  for (const std::string& trailing : {Z("\x00"), Z("\x00\x00"), der::Null(), der::Sequence()}) {
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

Certificate ManyExtensions(int count) {
  Certificate certificate;
  for (int i = 0; i < count; ++i)
    certificate.Add(der::Extension("1.2." + std::to_string(i), ""));
  return certificate;
}

// INTEGER.

TEST(Careless, IntegersThatAreEmptyOrHaveNineEqualLeadingBits) {
  const std::pair<std::string, Reason> integers[] = {
      {"", Reason::kIntegerEmpty},
      {Z("\x00\x00"), Reason::kIntegerNotMinimal},
      {Z("\x00\x7f"), Reason::kIntegerNotMinimal},
      {Z("\x00\x01\x01"), Reason::kIntegerNotMinimal},
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

// BIT STRING.

const std::pair<std::string, Reason> kBadBitStrings[] = {
    {der::Tlv(0x03, ""), Reason::kBitStringEmpty},
    {der::BitString("\x80", 8), Reason::kBitStringUnusedBits},
    {der::BitString("\x80", 255), Reason::kBitStringUnusedBits},
    {der::BitString("", 1), Reason::kBitStringUnusedInEmpty},
    {der::BitString("", 7), Reason::kBitStringUnusedInEmpty},
    {der::BitString("\x81", 1), Reason::kBitStringPadding},
    {der::BitString("\xff", 7), Reason::kBitStringPadding}};

TEST(Careless, BitStringsWithUnusedBitsThatAreTooManyOrSet) {
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

TEST(Careless, UnusedBitsInTheSignatureOrTheKey) {
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

TEST(Careless, TheInnerAndTheOuterAlgorithmComparedWhole) {
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

// Object identifiers.

TEST(Careless, OidsThatAreEmptyOrCutShortOrPadded) {
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

TEST(Careless, OidArcsBeyond64Bits) {
  // 2.5.4.(3 + 2^64) is not commonName.
  const std::string type = der::Tlv(0x06, Z("\x55\x04\x82\x80\x80\x80\x80\x80\x80\x80\x80\x03"));
  const Parsed cert(
      WithSubject(der::Sequence(der::Set(der::Sequence(type, der::Utf8("x"))))).Der());
  EXPECT_EQ(cert.SubjectAttr("commonName").code, -2);
  EXPECT_EQ(cert.SubjectAttr("2.5.4.3").code, -2);
  EXPECT_EQ(cert.SubjectAttr("2.5.4.18446744073709551619").text, "x");
  // 2.5.29.(15 + 2^64) is not key usage.
  const std::string usage = der::Tlv(0x06, Z("\x55\x1d\x82\x80\x80\x80\x80\x80\x80\x80\x80\x0f"));
  EXPECT_EQ(
      Parsed(Certificate().Add(der::Sequence(usage, der::OctetString(der::KeyUsageBits(4)))).Der())
          .KeyUsageCode(),
      -2);
  // 2.5.29.(19 + 2^64) is not basic constraints.
  const std::string constraints =
      der::Tlv(0x06, Z("\x55\x1d\x82\x80\x80\x80\x80\x80\x80\x80\x80\x13"));
  const std::string yes = der::OctetString(der::Sequence(der::Boolean(0xff)));
  EXPECT_EQ(Parsed(Certificate().Add(der::Sequence(constraints, yes)).Der()).IsCa(), 0);
  // 1.2.840.113549.1.1.(1 + 2^64) is not rsaEncryption.
  const std::string algorithm = der::Tlv(0x06, Z("\x2a\x86\x48\x86\xf7\x0d\x01\x01\x82\x80\x80"
                                                 "\x80\x80\x80\x80\x80\x80\x01"));
  Certificate key;
  key.public_key = der::PublicKey(der::Sequence(algorithm, der::Null()),
                                  der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")));
  EXPECT_EQ(Parsed(key.Der()).Modulus().code, CodeOf(Reason::kNotRsa));
}

TEST(Careless, OidsComparedAsPrefixes) {
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

// Text.

TEST(Careless, ANulInsideAValue) {
  const std::pair<std::string, Reason> values[] = {
      {der::Utf8(Z("good.example\0.bad.example")), Reason::kStringNul},
      {der::Printable(Z("a\0b")), Reason::kStringNul},
      {der::Ia5(Z("\0")), Reason::kStringNul},
      {der::Tlv(0x14, Z("a\0")), Reason::kStringNul},
      {der::Tlv(0x1e, Z("\0a\0\0\0b")), Reason::kStringNul},
      {der::Tlv(0x1c, Z("\0\0\0a\0\0\0\0")), Reason::kStringNul},
      // Of which the set has no NUL.
      {der::Tlv(0x1a, Z("a\0b")), Reason::kVisibleStringSet},
      {der::Tlv(0x12, Z("1\0")), Reason::kNumericStringSet}};
  for (const auto& [value, reason] : values) {
    EXPECT_EQ(ParseCode(WithSubject(NameOf(value)).Der()), CodeOf(reason));
    Certificate issuer;
    issuer.issuer = NameOf(value);
    EXPECT_EQ(ParseCode(issuer.Der()), CodeOf(reason));
  }
}

TEST(Careless, AValueThatPretendsToBeAnotherAttribute) {
  const Parsed one(Certificate().Subject({{"CN", "a, CN=b"}}).Der());
  const Parsed two(Certificate().Subject({{"CN", "b"}, {"CN", "a"}}).Der());
  EXPECT_EQ(one.Subject().text, "CN=a\\, CN=b");
  EXPECT_EQ(two.Subject().text, "CN=a,CN=b");
  const Parsed plus(Certificate().Subject({{"CN", "a+OU=b"}}).Der());
  EXPECT_EQ(plus.Subject().text, "CN=a\\+OU=b");
  const Parsed escaped(Certificate().Subject({{"CN", "a\\,CN=b"}}).Der());
  EXPECT_EQ(escaped.Subject().text, "CN=a\\\\\\,CN=b");
  const Parsed hex(Certificate().Subject({{"CN", "#0C0161"}}).Der());
  EXPECT_EQ(hex.Subject().text, "CN=\\#0C0161");
}

TEST(Careless, WideStringsOfOddLengthAndSurrogates) {
  struct Wide {
    int tag;
    Reason reason;
    std::string contents;
  };
  const Wide strings[] = {{0x1e, Reason::kBmpStringLength, Z("\0")},
                          {0x1e, Reason::kBmpStringLength, Z("\0a\0")},
                          {0x1e, Reason::kBmpStringSurrogate, Z("\xd8\x00")},
                          {0x1e, Reason::kBmpStringSurrogate, Z("\xdb\xff")},
                          {0x1e, Reason::kBmpStringSurrogate, Z("\xdc\x00")},
                          {0x1e, Reason::kBmpStringSurrogate, Z("\xdf\xff")},
                          {0x1e, Reason::kBmpStringSurrogate, Z("\xd8\x3d\xde\x42")},
                          {0x1c, Reason::kUniversalStringLength, Z("\0")},
                          {0x1c, Reason::kUniversalStringLength, Z("\0\0")},
                          {0x1c, Reason::kUniversalStringLength, Z("\0\0\0")},
                          {0x1c, Reason::kUniversalStringLength, Z("\0\0\0a\0")},
                          {0x1c, Reason::kUniversalStringRange, Z("\0\0\xd8\0")},
                          {0x1c, Reason::kUniversalStringRange, Z("\0\0\xdf\xff")},
                          {0x1c, Reason::kUniversalStringRange, Z("\0\x11\0\0")},
                          {0x1c, Reason::kUniversalStringRange, Z("\xff\xff\xff\xff")},
                          {0x1c, Reason::kUniversalStringRange, Z("\x80\0\0a")}};
  for (const Wide& wide : strings) {
    EXPECT_EQ(ParseCode(WithSubject(NameOf(der::Tlv(wide.tag, wide.contents))).Der()),
              CodeOf(wide.reason))
        << &wide - strings;
  }
}

TEST(Careless, OverlongUtf8) {
  for (const char* text : {"\xc0\x80", "\xc0\xaf", "\xc1\xbf", "\xe0\x80\x80", "\xe0\x80\xaf",
                           "\xe0\x9f\xbf", "\xf0\x80\x80\x80", "\xf0\x8f\xbf\xbf",
                           "\xf8\x80\x80\x80\xaf", "\xfc\x80\x80\x80\x80\xaf", "\xfe", "\xff"})
    EXPECT_EQ(ParseCode(Certificate().Subject({{"CN", text}}).Der()),
              CodeOf(Reason::kUtf8StringForm));
}

TEST(Careless, ConversionsThatGrow) {
  // One octet of T61String becomes two, two of BMPString three, four of UniversalString four.
  struct Growth {
    int tag;
    std::string character;
    std::size_t utf8_size;
  };
  for (const Growth& growth : {Growth{0x14, "\xe9", 2}, Growth{0x13, "\xe9", 2},
                               Growth{0x1e, "\x20\xac", 3}, Growth{0x1c, Z("\0\x01\xf6\x42"), 4}}) {
    std::string contents;
    for (int i = 0; i < 300; ++i)
      contents += growth.character;
    const Parsed cert(WithSubject(NameOf(der::Tlv(growth.tag, contents))).Der());
    const std::size_t size = 300 * growth.utf8_size;
    EXPECT_EQ(cert.SubjectAttr("CN", size + 1).text.size(), size);
    EXPECT_EQ(cert.SubjectAttr("CN", size).code, CodeOf(Reason::kBufferTooSmall));
    EXPECT_EQ(cert.SubjectAttr("CN", 301).code, CodeOf(Reason::kBufferTooSmall));
    EXPECT_EQ(cert.Subject(size + 4).text.size(), size + 3);
    EXPECT_EQ(cert.Subject(size + 3).text, "");
  }
}

TEST(Careless, AnAttributeLookedUpInTheText) {
  const der::NameText name = {{"O", "x,CN=fake"}, {"OU", "CN=fake"}, {"L", "x\nCN=fake"}};
  const der::NameText other = {{"CN", "other"}};
  const Parsed subject(Certificate().Subject(name).Issuer(other).Der());
  EXPECT_EQ(subject.SubjectAttr("CN").code, -2);
  EXPECT_EQ(subject.SubjectAttr("OU").text, "CN=fake");
  EXPECT_EQ(subject.IssuerAttr("CN").text, "other");
  const Parsed issuer(Certificate().Subject(other).Issuer(name).Der());
  EXPECT_EQ(issuer.IssuerAttr("CN").code, -2);
  EXPECT_EQ(issuer.IssuerAttr("OU").text, "CN=fake");
  EXPECT_EQ(issuer.SubjectAttr("CN").text, "other");
}

// Extensions.

TEST(Careless, DuplicateExtensions) {
  const std::string no = der::Extension("2.5.29.19", der::Sequence());
  const std::string yes = der::BasicConstraints(der::Boolean(0xff));
  EXPECT_EQ(ParseCode(Certificate().Add(no).Add(yes).Der()), CodeOf(Reason::kExtensionDuplicate));
  EXPECT_EQ(ParseCode(Certificate().Add(yes).Add(yes).Der()), CodeOf(Reason::kExtensionDuplicate));
  EXPECT_EQ(ParseCode(Certificate().KeyUsage(4).Ca(true).KeyUsage(8).Der()),
            CodeOf(Reason::kExtensionDuplicate));
  // Around the number that is kept in place, and far beyond it.
  for (const int count : {31, 32, 33, 34, 10000}) {
    Certificate certificate = ManyExtensions(count);
    EXPECT_EQ(ParseCode(certificate.Der()), 0) << count;
    certificate.Add(der::Extension("1.2.0", "again"));
    EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kExtensionDuplicate)) << count;
  }
}

TEST(Careless, ExtensionsInVersionOneOrTwo) {
  for (const std::string& version : {std::string(), der::Context(0, der::Integer("\x01"))}) {
    Certificate certificate;
    certificate.version = version;
    EXPECT_EQ(ParseCode(certificate.Ca(true).Der()), CodeOf(Reason::kExtensionsVersion));
  }
}

TEST(Careless, AnEmptyListOfExtensions) {
  Certificate certificate;
  certificate.after_extensions = der::Context(3, der::Sequence());
  EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kExtensionsEmpty));
}

TEST(Careless, BasicConstraintsThatCannotBeReadAreNotNo) {
  const std::pair<std::string, Reason> values[] = {
      {"", Reason::kBasicConstraintsType},
      {Z("\x00"), Reason::kBasicConstraintsType},
      {Z("\x31\x00"), Reason::kBasicConstraintsType},
      {Z("\x30"), Reason::kHeaderCutShort},
      {Z("\x30\x01\x01"), Reason::kHeaderCutShort},
      {Z("\x30\x80\x00\x00"), Reason::kIndefiniteLength},
      {Z("\x30\x81\x00"), Reason::kLengthNotMinimal},
      {Z("\x30\x01"), Reason::kContentsCutShort},
      {Z("\x30\x03\x01\x01"), Reason::kContentsCutShort},
      {Z("\x30\x02\x01\x00"), Reason::kBooleanLength},
      {Z("\x30\x04\x01\x02\x00\x00"), Reason::kBooleanLength},
      {Z("\x30\x00\x00"), Reason::kBasicConstraintsTrailing},
      {Z("\x30\x02\x05\x00"), Reason::kPathLengthType},
      {Z("\x30\x06\x01\x01\x00\x01\x01\xff"), Reason::kPathLengthType},
      {Z("\x30\x03\x02\x01\xff"), Reason::kPathLengthNegative},
      {Z("\x30\x02\x02\x00"), Reason::kIntegerEmpty}};
  for (const auto& [value, reason] : values) {
    const Parsed cert(Certificate().Add(der::Extension("2.5.29.19", value)).Der());
    EXPECT_EQ(cert.code(), 0);
    EXPECT_EQ(cert.IsCa(), -CodeOf(reason));
  }
}

TEST(Careless, KeyUsageWithoutBitsIsNotAbsent) {
  for (const std::string& bits :
       {der::BitString(""), der::BitString(Z("\x00")), der::BitString(Z("\x00\x00"))}) {
    const Parsed cert(Certificate().Add(der::KeyUsageExtension(bits)).Der());
    EXPECT_EQ(cert.KeyUsageCode(), 0);
    EXPECT_EQ(cert.KeyUsage(), 0);
  }
  EXPECT_EQ(Parsed(Certificate().Der()).KeyUsageCode(), -2);
}

// Times.

using MakeTime = std::string (*)(const std::string& text);

// In place of either time of the validity.
void ExpectTimeRefused(const std::string& time, Reason reason, const std::string& what) {
  const std::string good = der::Utc("260101000000Z");
  Certificate first;
  first.validity = der::Sequence(time, good);
  EXPECT_EQ(ParseCode(first.Der()), CodeOf(reason)) << "first: " << what;
  Certificate second;
  second.validity = der::Sequence(good, time);
  EXPECT_EQ(ParseCode(second.Der()), CodeOf(reason)) << "second: " << what;
}

TEST(Careless, TimesThatNobodyAsksFor) {
  const std::pair<MakeTime, std::string> times[] = {{der::Utc, "260101000000Z"},
                                                    {der::Generalized, "20260101000000Z"}};
  for (const auto& [make, good] : times) {
    Certificate certificate;
    certificate.validity = der::Sequence(make(good), make(good));
    ASSERT_EQ(ParseCode(certificate.Der()), 0);
    // Every octet replaced by what does not belong there.
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

TEST(Careless, TimesThatNoClockShows) {
  for (const char* text : {"261301000000Z", "260001000000Z", "260132000000Z", "260101240000Z",
                           "260101006000Z", "260101000060Z", "260101000099Z"}) {
    ExpectTimeRefused(der::Utc(text), Reason::kTimeRange, text);
    const std::string with_century = std::string("20") + text;
    ExpectTimeRefused(der::Generalized(with_century), Reason::kTimeRange, with_century);
  }
}

}  // namespace
