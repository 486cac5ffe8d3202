// Every reason for which a certificate, or a question about it, is refused; and that libcrypto
// accepts it only where we are known to be stricter.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <set>

#include "differential.h"
#include "parsed.h"
#include "refused_certificates.h"
#include "support/der_writer.h"

namespace {

using der::Certificate;

// A string literal with its zero octets.
template <std::size_t size>
std::string Z(const char (&octets)[size]) {
  return std::string(octets, size - 1);
}

std::string Rdns(const std::string& rdns) {
  return der::Sequence(rdns);
}
// A name of one attribute with this value.
std::string NameOf(const std::string& value) {
  return Rdns(der::Set(der::Attribute("CN", value)));
}

struct NameOfCase {
  template <typename Info>
  std::string operator()(const Info& info) const {
    return info.param.name;
  }
};

class RefusedCertificate : public testing::TestWithParam<RefusalCase> {};

TEST_P(RefusedCertificate, HasItsOwnReason) {
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
    {"Nothing", Reason::kCertificateType, ""},
    {"Text", Reason::kCertificateType, "-----BEGIN CERTIFICATE-----"},
    {"OneOctet", Reason::kHeaderCutShort, "\x30"},
    {"Zeros", Reason::kCertificateType, std::string(100, '\0')},
    {"AnEmptySequence", Reason::kTbsType, Z("\x30\x00")},
    {"TbsIsNoSequence", Reason::kTbsType, der::Sequence(der::Set())},
    {"TbsCutShort", Reason::kContentsCutShort, der::Sequence(Z("\x30\x7f\x02"))},
    {"TbsEmpty", Reason::kSerialType, der::Sequence(der::Sequence())},
    {"LengthOf4GiB", Reason::kContentsCutShort, Z("\x30\x84\xff\xff\xff\xff\x30")},
    {"LengthOneMoreThanThereIs", Reason::kContentsCutShort, Z("\x30\x03\x02\x01")},
    {"IndefiniteLength", Reason::kIndefiniteLength, Z("\x30\x80\x00\x00")},
    {"ReservedLength", Reason::kReservedLength, "\x30" + std::string(200, '\xff')},
};

void PrintTo(const InputCase& one, std::ostream* out) {
  *out << one.name;
}

class RefusedInput : public testing::TestWithParam<InputCase> {};

TEST_P(RefusedInput, HasItsOwnReason) {
  const Parsed parsed(GetParam().input);
  EXPECT_EQ(parsed.code(), CodeOf(GetParam().reason)) << cert_error_text(parsed.code());
  EXPECT_EQ(CompareWithOpenssl(GetParam().input).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedInput, testing::ValuesIn(kInputCases), NameOfCase());

// Certificates that parse, and one question that they cannot answer.
struct QuestionCase {
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
const QuestionCase kQuestionCases[] = {
    {"BasicConstraintsEmptyValue", Reason::kBasicConstraintsType, [](Certificate& c) { c.Add(BasicConstraintsValue("")); }, AskIsCa},
    {"BasicConstraintsNoSequence", Reason::kBasicConstraintsType, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Boolean(0xff))); }, AskIsCa},
    {"BasicConstraintsCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(BasicConstraintsValue(Z("\x30\x03\x01\x01"))); }, AskIsCa},
    {"BasicConstraintsFlagCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(Z("\x01\x02\xff")))); }, AskIsCa},
    {"BasicConstraintsFlagEmpty", Reason::kBooleanLength, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(der::Tlv(0x01, "")))); }, AskIsCa},
    {"OctetsAfterTheBasicConstraints", Reason::kBasicConstraintsTrailing, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(der::Boolean(0xff)) + der::Null())); }, AskIsCa},
    {"OctetsWithinTheBasicConstraints", Reason::kBasicConstraintsTrailing, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\x01") + der::Null())); }, AskIsCa},
    {"BasicConstraintsWithAnotherType", Reason::kPathLengthType, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Null())); }, AskIsCa},
    {"PathLengthCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + Z("\x02\x02\x01"))); }, AskIsCa},
    {"PathLengthEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer(""))); }, AskIsCa},
    {"PathLengthNegative", Reason::kPathLengthNegative, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\xff"))); }, AskIsCa},
    {"KeyUsageEmptyValue", Reason::kKeyUsageType, [](Certificate& c) { c.Add(der::KeyUsageExtension("")); }, AskKeyUsage},
    {"KeyUsageNoBitString", Reason::kKeyUsageType, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::OctetString("\x80"))); }, AskKeyUsage},
    {"KeyUsageCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(der::KeyUsageExtension(Z("\x03\x02\x07"))); }, AskKeyUsage},
    {"KeyUsageWithoutInitialOctet", Reason::kBitStringEmpty, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::Tlv(0x03, ""))); }, AskKeyUsage},
    {"KeyUsageWithEightUnusedBits", Reason::kBitStringUnusedBits, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("\x80", 8))); }, AskKeyUsage},
    {"KeyUsageEmptyWithUnusedBits", Reason::kBitStringUnusedInEmpty, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("", 7))); }, AskKeyUsage},
    {"KeyUsageWithUnusedBitsSet", Reason::kBitStringPadding, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("\x81", 7))); }, AskKeyUsage},
    {"OctetsAfterTheKeyUsage", Reason::kKeyUsageTrailing, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::KeyUsageBits(128) + der::Null())); }, AskKeyUsage},
    {"EcKey", Reason::kNotRsa, [](Certificate& c) { c.Ec(); }, AskRsa},
    {"Ed25519Key", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.3.101.112", ""), std::string(32, 'k')); }, AskRsa},
    {"DsaKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.10040.4.1", der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x0b"), der::Unsigned("\x04"))), der::Unsigned("\x03")); }, AskRsa},
    {"GostKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.643.7.1.1.1.1", der::Sequence(der::Oid("1.2.643.2.2.36.0"), der::Oid("1.2.643.7.1.1.2.2"))), der::OctetString(std::string(64, 'k'))); }, AskRsa},
    {"Sm2Key", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.10045.2.1", der::Oid("1.2.156.10197.1.301")), "\x04" + std::string(64, 'k')); }, AskRsa},
    {"MlDsaKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("2.16.840.1.101.3.4.3.17", ""), std::string(1312, 'k')); }, AskRsa},
    {"RsaPssKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.10", ""), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"KeyOfALongerOidThanRsa", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1.1"), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyWithOtherParameters", Reason::kRsaParameters, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", der::Sequence()), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyEmpty", Reason::kRsaKeyType, [](Certificate& c) { c.public_key = RsaKeyOf(""); }, AskRsa},
    {"RsaKeyNoSequence", Reason::kRsaKeyType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Set(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.public_key = RsaKeyOf(Z("\x30\x05\x02\x01\x01")); }, AskRsa},
    {"OctetsAfterTheRsaKey", Reason::kRsaKeyTrailing, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")) + der::Null()); }, AskRsa},
    {"OctetsWithinTheRsaKey", Reason::kRsaKeyTrailing, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"), der::Null())); }, AskRsa},
    {"RsaKeyWithoutExponent", Reason::kRsaIntegerType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"))); }, AskRsa},
    {"RsaKeyWithoutIntegers", Reason::kRsaIntegerType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence()); }, AskRsa},
    {"RsaModulusCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(Z("\x02\x02\x01"))); }, AskRsa},
    {"RsaModulusEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer(""), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaModulusNotMinimal", Reason::kIntegerNotMinimal, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer(Z("\x00\x00\xc1")), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaModulusNegative", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer("\xc1\x01"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaExponentNegative", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Integer("\x81"))); }, AskRsa},
    {"RsaModulusZero", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned(""), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaExponentZero", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned(""))); }, AskRsa},
    {"AttributeTypeWithAnArcOfTwentyOctets", Reason::kOidArcTooLarge, [](Certificate& c) { c.subject = Rdns(der::Set(der::Sequence(der::Tlv(0x06, "\x2a" + std::string(19, '\x81') + "\x01"), der::Utf8("x")))); }, AskSubject},
    {"AttributeOfBits", Reason::kAttributeNotText, [](Certificate& c) { c.subject = NameOf(der::BitString("x")); }, AskCommonName},
    {"AttributeOfASequence", Reason::kAttributeNotText, [](Certificate& c) { c.subject = NameOf(der::Sequence(der::Utf8("x"))); }, AskCommonName},
};
// clang-format on

void PrintTo(const QuestionCase& one, std::ostream* out) {
  *out << one.name;
}

class RefusedQuestion : public testing::TestWithParam<QuestionCase> {};

TEST_P(RefusedQuestion, HasItsOwnReason) {
  Certificate certificate;
  GetParam().change(certificate);
  const std::string der = certificate.Der();
  const Parsed parsed(der);
  ASSERT_EQ(parsed.code(), 0) << cert_error_text(parsed.code());
  const int code = GetParam().ask(parsed);
  EXPECT_EQ(code, CodeOf(GetParam().reason)) << cert_error_text(code);
  EXPECT_EQ(CompareWithOpenssl(der).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedQuestion, testing::ValuesIn(kQuestionCases), NameOfCase());

TEST(Reasons, AreAllProvoked) {
  std::set<Reason> provoked;
  for (const RefusalCase& one : RefusedCertificates())
    provoked.insert(one.reason);
  for (const InputCase& one : kInputCases)
    provoked.insert(one.reason);
  for (const QuestionCase& one : kQuestionCases)
    provoked.insert(one.reason);
  // Those of a call, which have tests of their own.
  provoked.insert({Reason::kInvalidArgument, Reason::kOutOfMemory, Reason::kNothingParsed,
                   Reason::kInputTooLarge, Reason::kBufferTooSmall});
#define REASON(enumerator, number, sentence) \
  EXPECT_EQ(provoked.count(Reason::enumerator), 1U) << (sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, EachHaveASentenceOfTheirOwn) {
  std::set<std::string> sentences;
#define REASON(enumerator, number, sentence)                          \
  EXPECT_STREQ(cert_error_text(number), sentence);                    \
  EXPECT_STREQ(cert_error_text(-(number)), sentence) << "cert_is_ca"; \
  EXPECT_TRUE(sentences.insert(sentence).second) << (sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, AreAllDocumentedWithTheirNumbers) {
  std::ifstream file(CARDCERT_DOCS_FOLDER "/certificates.md");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  ASSERT_FALSE(text.empty());
  const auto expect_row = [&](Reason reason, const std::string& sentence) {
    const std::string row = "| " + std::to_string(CodeOf(reason)) + " | " + sentence + " |";
    EXPECT_NE(text.find(row), std::string::npos) << row;
  };
#define REASON(enumerator, number, sentence) expect_row(Reason::enumerator, sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, OtherCodesHaveASentenceToo) {
  EXPECT_STREQ(cert_error_text(0), "success");
  EXPECT_STREQ(cert_error_text(-2), "the certificate has no such attribute or extension");
  for (const int code : {1, 2, -1, 9, 9999, 2147483647, -2147483647 - 1})
    EXPECT_STREQ(cert_error_text(code), "no code of this library");
}

}  // namespace
