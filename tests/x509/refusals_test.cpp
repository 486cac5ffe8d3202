// Every reason for which a certificate or a query is refused. libcrypto accepts such a certificate
// only if the reason is on the list of known differences.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "certificate_parts.h"
#include "differential.h"
#include "parsed.h"
#include "refused_certificates.h"
#include "support/der_writer.h"
#include "support/files.h"

namespace {

using der::Certificate;

struct NameOfCase {
  template <typename Info>
  std::string operator()(const Info& info) const {
    return info.param.name;
  }
};

class RefusedCertificate : public testing::TestWithParam<RefusalCase> {};

TEST_P(RefusedCertificate, ReportsReason) {
  const std::string der = GetParam().Der();
  const Parsed parsed(der);
  EXPECT_EQ(parsed.code(), CodeOf(GetParam().reason)) << cert_error_text(parsed.code());
  EXPECT_EQ(CompareWithOpenssl(der).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedCertificate, testing::ValuesIn(RefusedCertificates()),
                         NameOfCase());

struct InputCase {
  const char* name;
  Reason reason;
  std::string input;
};

const InputCase kInputCases[] = {
    {"EmptyInput", Reason::kCertificateType, ""},
    {"Text", Reason::kCertificateType, "-----BEGIN CERTIFICATE-----"},
    {"OneOctet", Reason::kHeaderCutShort, "\x30"},
    {"Zeros", Reason::kCertificateType, std::string(100, '\0')},
    {"EmptySequence", Reason::kTbsType, Bytes("\x30\x00")},
    {"TbsIsNotSequence", Reason::kTbsType, der::Sequence(der::Set())},
    {"TbsTruncated", Reason::kContentsCutShort, der::Sequence(Bytes("\x30\x7f\x02"))},
    {"TbsEmpty", Reason::kSerialType, der::Sequence(der::Sequence())},
    {"LengthOf4GiB", Reason::kContentsCutShort, Bytes("\x30\x84\xff\xff\xff\xff\x30")},
    {"LengthExceedsInputByOne", Reason::kContentsCutShort, Bytes("\x30\x03\x02\x01")},
    {"IndefiniteLength", Reason::kIndefiniteLength, Bytes("\x30\x80\x00\x00")},
    {"ReservedLength", Reason::kReservedLength, "\x30" + std::string(200, '\xff')},
};

void PrintTo(const InputCase& one, std::ostream* out) {
  *out << one.name;
}

class RefusedInput : public testing::TestWithParam<InputCase> {};

TEST_P(RefusedInput, ReportsReason) {
  const Parsed parsed(GetParam().input);
  EXPECT_EQ(parsed.code(), CodeOf(GetParam().reason)) << cert_error_text(parsed.code());
  EXPECT_EQ(CompareWithOpenssl(GetParam().input).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedInput, testing::ValuesIn(kInputCases), NameOfCase());

// Certificates that are accepted, and one query that fails.
struct QueryCase {
  const char* name;
  Reason reason;
  std::function<void(Certificate&)> change;
  int (*ask)(const Parsed&);
};

int AskIsCa(const Parsed& parsed) {
  return -parsed.IsCa();
}
int AskKeyUsage(const Parsed& parsed) {
  EXPECT_EQ(parsed.KeyUsage(), 0);
  return parsed.KeyUsageCode();
}
int AskRsa(const Parsed& parsed) {
  return parsed.Modulus().code;
}
int AskSubject(const Parsed& parsed) {
  return parsed.Subject().code;
}
int AskCommonName(const Parsed& parsed) {
  return parsed.SubjectAttr("CN").code;
}

std::string BasicConstraintsValue(const std::string& value) {
  return der::Extension("2.5.29.19", value);
}
std::string RsaKeyOf(const std::string& key) {
  return der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1"), key);
}

// clang-format off
const QueryCase kQueryCases[] = {
    {"BasicConstraintsEmptyValue", Reason::kBasicConstraintsType, [](Certificate& c) { c.Add(BasicConstraintsValue("")); }, AskIsCa},
    {"BasicConstraintsNotSequence", Reason::kBasicConstraintsType, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Boolean(0xff))); }, AskIsCa},
    {"BasicConstraintsTruncated", Reason::kContentsCutShort, [](Certificate& c) { c.Add(BasicConstraintsValue(Bytes("\x30\x03\x01\x01"))); }, AskIsCa},
    {"BasicConstraintsFlagTruncated", Reason::kContentsCutShort, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(Bytes("\x01\x02\xff")))); }, AskIsCa},
    {"BasicConstraintsFlagEmpty", Reason::kBooleanLength, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(der::Tlv(0x01, "")))); }, AskIsCa},
    {"TrailingOctetsAfterBasicConstraints", Reason::kBasicConstraintsTrailing, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(der::Boolean(0xff)) + der::Null())); }, AskIsCa},
    {"BasicConstraintsWithThirdElement", Reason::kBasicConstraintsTrailing, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\x01") + der::Null())); }, AskIsCa},
    {"BasicConstraintsWithOtherElement", Reason::kPathLengthType, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Null())); }, AskIsCa},
    {"PathLengthTruncated", Reason::kContentsCutShort, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + Bytes("\x02\x02\x01"))); }, AskIsCa},
    {"PathLengthEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer(""))); }, AskIsCa},
    {"PathLengthNegative", Reason::kPathLengthNegative, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\xff"))); }, AskIsCa},
    {"KeyUsageEmptyValue", Reason::kKeyUsageType, [](Certificate& c) { c.Add(der::KeyUsageExtension("")); }, AskKeyUsage},
    {"KeyUsageNotBitString", Reason::kKeyUsageType, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::OctetString("\x80"))); }, AskKeyUsage},
    {"KeyUsageTruncated", Reason::kContentsCutShort, [](Certificate& c) { c.Add(der::KeyUsageExtension(Bytes("\x03\x02\x07"))); }, AskKeyUsage},
    {"KeyUsageWithoutInitialOctet", Reason::kBitStringEmpty, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::Tlv(0x03, ""))); }, AskKeyUsage},
    {"KeyUsageWithEightUnusedBits", Reason::kBitStringUnusedBits, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("\x80", 8))); }, AskKeyUsage},
    {"KeyUsageEmptyWithUnusedBits", Reason::kBitStringUnusedInEmpty, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("", 7))); }, AskKeyUsage},
    {"KeyUsageWithUnusedBitsSet", Reason::kBitStringPadding, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("\x81", 7))); }, AskKeyUsage},
    {"TrailingOctetsAfterKeyUsage", Reason::kKeyUsageTrailing, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::KeyUsageBits(128) + der::Null())); }, AskKeyUsage},
    {"EcKey", Reason::kNotRsa, [](Certificate& c) { c.Ec(); }, AskRsa},
    {"Ed25519Key", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.3.101.112", ""), std::string(32, 'k')); }, AskRsa},
    {"DsaKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.10040.4.1", der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x0b"), der::Unsigned("\x04"))), der::Unsigned("\x03")); }, AskRsa},
    {"GostKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.643.7.1.1.1.1", der::Sequence(der::Oid("1.2.643.2.2.36.0"), der::Oid("1.2.643.7.1.1.2.2"))), der::OctetString(std::string(64, 'k'))); }, AskRsa},
    {"Sm2Key", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.10045.2.1", der::Oid("1.2.156.10197.1.301")), "\x04" + std::string(64, 'k')); }, AskRsa},
    {"MlDsaKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("2.16.840.1.101.3.4.3.17", ""), std::string(1312, 'k')); }, AskRsa},
    {"RsaPssKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.10", ""), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"KeyWithLongerOidThanRsa", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1.1"), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyWithOtherParameters", Reason::kRsaParameters, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", der::Sequence()), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyEmpty", Reason::kRsaKeyType, [](Certificate& c) { c.public_key = RsaKeyOf(""); }, AskRsa},
    {"RsaKeyNotSequence", Reason::kRsaKeyType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Set(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyTruncated", Reason::kContentsCutShort, [](Certificate& c) { c.public_key = RsaKeyOf(Bytes("\x30\x05\x02\x01\x01")); }, AskRsa},
    {"TrailingOctetsAfterRsaKey", Reason::kRsaKeyTrailing, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")) + der::Null()); }, AskRsa},
    {"RsaKeyWithThirdElement", Reason::kRsaKeyTrailing, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"), der::Null())); }, AskRsa},
    {"RsaKeyWithoutExponent", Reason::kRsaIntegerType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"))); }, AskRsa},
    {"RsaKeyWithoutIntegers", Reason::kRsaIntegerType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence()); }, AskRsa},
    {"RsaModulusTruncated", Reason::kContentsCutShort, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(Bytes("\x02\x02\x01"))); }, AskRsa},
    {"RsaModulusEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer(""), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaModulusNotMinimal", Reason::kIntegerNotMinimal, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer(Bytes("\x00\x00\xc1")), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaModulusNegative", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer("\xc1\x01"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaExponentNegative", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Integer("\x81"))); }, AskRsa},
    {"RsaModulusZero", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned(""), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaExponentZero", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned(""))); }, AskRsa},
    {"AttributeTypeWithArcOfTwentyOctets", Reason::kOidArcTooLarge, [](Certificate& c) { c.subject = der::Sequence(der::Set(der::Sequence(der::Tlv(0x06, "\x2a" + std::string(19, '\x81') + "\x01"), der::Utf8("x")))); }, AskSubject},
    {"AttributeOfBits", Reason::kAttributeNotText, [](Certificate& c) { c.subject = NameOf(der::BitString("x")); }, AskCommonName},
    {"AttributeOfSequence", Reason::kAttributeNotText, [](Certificate& c) { c.subject = NameOf(der::Sequence(der::Utf8("x"))); }, AskCommonName},
};
// clang-format on

void PrintTo(const QueryCase& one, std::ostream* out) {
  *out << one.name;
}

class RefusedQuery : public testing::TestWithParam<QueryCase> {};

TEST_P(RefusedQuery, ReportsReason) {
  Certificate certificate;
  GetParam().change(certificate);
  const std::string der = certificate.Der();
  const Parsed parsed(der);
  ASSERT_EQ(parsed.code(), 0) << cert_error_text(parsed.code());
  const int code = GetParam().ask(parsed);
  EXPECT_EQ(code, CodeOf(GetParam().reason)) << cert_error_text(code);
  EXPECT_EQ(CompareWithOpenssl(der).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedQuery, testing::ValuesIn(kQueryCases), NameOfCase());

TEST(Reasons, AreAllTested) {
  std::set<Reason> provoked;
  for (const RefusalCase& one : RefusedCertificates())
    provoked.insert(one.reason);
  for (const InputCase& one : kInputCases)
    provoked.insert(one.reason);
  for (const QueryCase& one : kQueryCases)
    provoked.insert(one.reason);
  // Reasons that concern a call rather than a certificate are tested elsewhere.
  provoked.insert({Reason::kInvalidArgument, Reason::kOutOfMemory, Reason::kNothingParsed,
                   Reason::kInputTooLarge, Reason::kBufferTooSmall});
#define REASON(enumerator, number, sentence) \
  EXPECT_EQ(provoked.count(Reason::enumerator), 1U) << (sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, HaveDistinctTexts) {
  std::set<std::string> sentences;
#define REASON(enumerator, number, sentence)                          \
  EXPECT_STREQ(cert_error_text(number), sentence);                    \
  EXPECT_STREQ(cert_error_text(-(number)), sentence) << "cert_is_ca"; \
  EXPECT_TRUE(sentences.insert(sentence).second) << (sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, AreAllDocumented) {
  const std::string text = support::ReadFile(CARDCERT_DOCS_FOLDER "/certificates.md");
  ASSERT_FALSE(text.empty());
  const auto expect_row = [&](Reason reason, const std::string& sentence) {
    const std::string row = "| " + std::to_string(CodeOf(reason)) + " | " + sentence + " |";
    EXPECT_NE(text.find(row), std::string::npos) << row;
  };
#define REASON(enumerator, number, sentence) expect_row(Reason::enumerator, sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, UnknownCodesHaveText) {
  EXPECT_STREQ(cert_error_text(0), "success");
  EXPECT_STREQ(cert_error_text(-2), "the certificate has no such attribute or extension");
  for (const int code : {1, 2, -1, 9, 9999, 2147483647, -2147483647 - 1})
    EXPECT_STREQ(cert_error_text(code), "not a code of this library");
}

}  // namespace
