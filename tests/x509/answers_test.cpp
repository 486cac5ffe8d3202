// What the questions about a certificate answer, and what they leave behind.
#include <gtest/gtest.h>

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

// The record.

TEST(Parse, TakesACertificateAndAnswersEveryQuestion) {
  const Parsed cert(Certificate()
                        .Serial(Z("\x00\x8f\x01"))
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
  EXPECT_EQ(cert.Serial().octets, Z("\x00\x8f\x01"));
  EXPECT_EQ(cert.KeyUsageCode(), 0);
  EXPECT_EQ(cert.KeyUsage(), 128 | 64);
  EXPECT_EQ(cert.Exponent().octets, Z("\x01\x00\x01"));
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

TEST_F(Record, MayBeFreedEmptyOrNull) {
  cert_free(nullptr);
}

TEST_F(Record, AnswersNothingWhileItIsEmpty) {
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

TEST_F(Record, IsEmptyAfterAFailedParse) {
  EXPECT_NE(Parse("x"), 0);
  EXPECT_EQ(cert_is_ca(cert_), -CodeOf(Reason::kNothingParsed));
}

TEST_F(Record, TakesANewCertificateInPlaceOfTheOld) {
  ASSERT_EQ(Parse(Certificate().Subject({{"CN", "old"}}).KeyUsage(4).Ca(true).Der()), 0);
  ASSERT_EQ(Parse(Certificate().Subject({{"CN", "new"}}).Der()), 0);
  int usage = 0;
  EXPECT_EQ(Subject(), "CN=new");
  EXPECT_EQ(cert_is_ca(cert_), 0);
  EXPECT_EQ(cert_key_usage(cert_, &usage), -2);
}

TEST_F(Record, KeepsTheOldCertificateWhenTheNewOneIsRefused) {
  ASSERT_EQ(Parse(Certificate().Subject({{"CN", "old"}}).Der()), 0);
  Certificate refused;
  refused.signature = "";
  EXPECT_EQ(Parse(refused.Der()), CodeOf(Reason::kSignatureType));
  EXPECT_EQ(Subject(), "CN=old");
}

TEST_F(Record, RefusesANegativeLength) {
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

// What is tolerated.

TEST(Tolerated, CaFalseWrittenOut) {
  EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(der::Boolean(0))).Der()).IsCa(), 0);
}

TEST(Tolerated, KeyUsageWithTrailingZeroBits) {
  const Parsed cert(
      Certificate().Add(der::KeyUsageExtension(der::BitString(Z("\x06\x00"), 0))).Der());
  EXPECT_EQ(cert.KeyUsageCode(), 0);
  EXPECT_EQ(cert.KeyUsage(), 4 | 2);
}

TEST(Tolerated, PrintableStringWithCharactersOutsideItsSet) {
  const Parsed cert(WithSubject(NameOf(der::Printable("*.a_b@c & d\xe9"))).Der());
  EXPECT_EQ(cert.SubjectAttr("CN").text, "*.a_b@c & d\xc3\xa9");
}

TEST(Tolerated, CriticalFalseWrittenOut) {
  const std::string value = der::KeyUsageBits(128);
  const Parsed cert(Certificate().Add(der::Extension("2.5.29.15", value, der::Boolean(0))).Der());
  EXPECT_EQ(cert.KeyUsage(), 128);
}

TEST(Tolerated, BooleanTrueOtherThanFF) {
  EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(der::Boolean(1))).Der()).IsCa(), 1);
  const std::string value = der::KeyUsageBits(128);
  const Parsed cert(Certificate().Add(der::Extension("2.5.29.15", value, der::Boolean(1))).Der());
  EXPECT_EQ(cert.KeyUsage(), 128);
}

TEST(Tolerated, PaddingOfAllZerosOrAllFF) {
  for (const std::size_t size : {1U, 2U, 3U, 1000U}) {
    for (const char filler : {'\x00', '\xff'}) {
      Certificate certificate;
      certificate.padding = std::string(size, filler);
      EXPECT_EQ(Parsed(certificate.Der()).code(), 0) << size;
    }
  }
}

TEST(Tolerated, AnEmptyIssuer) {
  Certificate certificate;
  certificate.issuer = der::Sequence();
  const Parsed cert(certificate.Der());
  EXPECT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.IssuerAttr("CN").code, -2);
}

TEST(Versions, OneAndTwoHaveNoExtensionsAndAnswerSo) {
  for (const std::string& version : {std::string(), der::Context(0, der::Integer("\x01"))}) {
    Certificate certificate;
    certificate.version = version;
    const Parsed cert(certificate.Der());
    ASSERT_EQ(cert.code(), 0);
    EXPECT_EQ(cert.IsCa(), 0);
    EXPECT_EQ(cert.KeyUsageCode(), -2);
  }
}

TEST(UniqueIds, AreSkipped) {
  for (const bool issuer : {false, true}) {
    for (const bool subject : {false, true}) {
      Certificate certificate;
      certificate.issuer_unique_id = issuer ? der::Tlv(0x81, Z("\x00i")) : "";
      certificate.subject_unique_id = subject ? der::Tlv(0x82, Z("\x00s")) : "";
      EXPECT_EQ(Parsed(certificate.Ca(true).Der()).IsCa(), 1);
    }
  }
}

TEST(Times, OfEveryAllowedFormAndTheLastDays) {
  for (const std::string& time :
       {der::Utc("000229235959Z"), der::Utc("491231000000Z"), der::Utc("500101000000Z"),
        der::Generalized("20000229000000Z"), der::Generalized("99991231235959Z"),
        der::Generalized("20200101000000Z"), der::Generalized("00000101000000Z")}) {
    Certificate certificate;
    certificate.validity = der::Sequence(time, time);
    EXPECT_EQ(Parsed(certificate.Der()).code(), 0) << time;
  }
}

TEST(AlgorithmParameters, MayBeOfEveryTypeThatAlgorithmsUse) {
  for (const std::string& parameters :
       {std::string(), der::Null(), der::Oid("1.2.3"), der::Sequence(), der::Sequence("opaque"),
        der::Set(), der::OctetString("x"), der::Integer("\x01"), der::Boolean(0xff),
        der::BitString("x"), der::Context(0, "opaque"), der::Tlv(0x80, ""), der::Tlv(0x41, "x")}) {
    Certificate certificate;
    certificate.signed_algorithm = der::Algorithm("1.2.3", parameters);
    EXPECT_EQ(Parsed(certificate.Der()).code(), 0);
  }
}

// Names.

TEST(Subject, IsEmptyTextWithoutAName) {
  const Parsed cert(WithSubject(der::Sequence()).Der());
  EXPECT_EQ(cert.Subject().code, 0);
  EXPECT_EQ(cert.Subject().text, "");
  EXPECT_EQ(cert.Subject(1).code, 0);
}

TEST(Subject, BeginsWithTheMostSpecificName) {
  EXPECT_EQ(Parsed(Certificate().Subject({{"DC", "test"}, {"DC", "example"}, {"CN", "a"}}).Der())
                .Subject()
                .text,
            "CN=a,DC=example,DC=test");
}

TEST(Subject, JoinsTheAttributesOfOneRdnWithPlus) {
  const std::string subject = der::Sequence(
      der::Set(der::Attribute("C", der::Printable("XX"))),
      der::Set(der::Attribute("CN", der::Utf8("a")), der::Attribute("OU", der::Utf8("b"))),
      der::Set(der::Attribute("UID", der::Utf8("c"))));
  EXPECT_EQ(Parsed(WithSubject(subject).Der()).Subject().text, "UID=c,OU=b+CN=a,C=XX");
}

struct EscapeCase {
  std::string value;
  std::string text;
};

class Escapes : public testing::TestWithParam<EscapeCase> {};

TEST_P(Escapes, GiveTheTextOneReading) {
  const Parsed cert(Certificate().Subject({{"CN", GetParam().value}}).Der());
  EXPECT_EQ(cert.Subject().text, "CN=" + GetParam().text);
  EXPECT_EQ(cert.SubjectAttr("CN").text, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Values, Escapes,
    testing::Values(EscapeCase{"", ""}, EscapeCase{"a b", "a b"}, EscapeCase{" a", "\\ a"},
                    EscapeCase{"a ", "a\\ "}, EscapeCase{" ", "\\ "}, EscapeCase{"  ", "\\ \\ "},
                    EscapeCase{"   ", "\\  \\ "}, EscapeCase{"#a#", "\\#a#"},
                    EscapeCase{"#", "\\#"}, EscapeCase{" #", "\\ #"}, EscapeCase{"a,b", "a\\,b"},
                    EscapeCase{"a+b", "a\\+b"}, EscapeCase{"\"a\"", "\\\"a\\\""},
                    EscapeCase{"a\\b", "a\\\\b"}, EscapeCase{"<a>;", "\\<a\\>\\;"},
                    EscapeCase{"a=b", "a=b"}, EscapeCase{"a, CN=b", "a\\, CN=b"},
                    EscapeCase{"\n\r\t", "\\0A\\0D\\09"},
                    EscapeCase{"\x01\x1f\x7f", "\\01\\1F\\7F"},
                    EscapeCase{"\xc3\xa9\xe2\x82\xac\xf0\x9f\x99\x82",
                               "\xc3\xa9\xe2\x82\xac\xf0\x9f\x99\x82"},
                    EscapeCase{"\xc2\x85", "\xc2\x85"}, EscapeCase{"\\2C", "\\\\2C"}));

TEST(Subject, WritesADottedTypeWithItsDerInHexadecimal) {
  const Parsed cert(
      WithSubject(der::Sequence(der::Set(der::Attribute("1.2.3.4", der::Utf8("Hi"))))).Der());
  EXPECT_EQ(cert.Subject().text, "1.2.3.4=#0C024869");
  EXPECT_EQ(cert.SubjectAttr("1.2.3.4").text, "Hi");
}

TEST(Subject, WritesWhatIsNoStringInHexadecimal) {
  EXPECT_EQ(Parsed(WithSubject(NameOf(der::BitString("\xa0", 5))).Der()).Subject().text,
            "CN=#030205A0");
  EXPECT_EQ(Parsed(WithSubject(NameOf(der::Sequence(der::Utf8(Z("\0"))))).Der()).Subject().text,
            "CN=#30030C0100");
}

struct OidCase {
  std::string contents;
  std::string dotted;
};

class DottedOids : public testing::TestWithParam<OidCase> {};

TEST_P(DottedOids, AreWrittenAndFound) {
  const std::string type = der::Tlv(0x06, GetParam().contents);
  const Parsed cert(
      WithSubject(der::Sequence(der::Set(der::Sequence(type, der::Utf8("x"))))).Der());
  EXPECT_EQ(cert.Subject().text, GetParam().dotted + "=#0C0178");
  EXPECT_EQ(cert.SubjectAttr(GetParam().dotted).text, "x");
  EXPECT_EQ(cert.SubjectAttr(GetParam().dotted + "0").code, -2);
  EXPECT_EQ(cert.SubjectAttr(GetParam().dotted + ".").code, -2);
  EXPECT_EQ(cert.SubjectAttr(GetParam().dotted.substr(0, GetParam().dotted.size() - 1)).code, -2);
}

INSTANTIATE_TEST_SUITE_P(
    Types, DottedOids,
    testing::Values(
        OidCase{Z("\x00"), "0.0"}, OidCase{Z("\x27"), "0.39"}, OidCase{Z("\x28"), "1.0"},
        OidCase{Z("\x4f"), "1.39"}, OidCase{Z("\x50"), "2.0"}, OidCase{Z("\x7f"), "2.47"},
        OidCase{Z("\x88\x37"), "2.999"}, OidCase{Z("\x2a\x00"), "1.2.0"},
        OidCase{Z("\x2a\x83\xdc\xeb\x94\x00"), "1.2.1000000000"},
        OidCase{Z("\x2a\x83\xdc\xeb\x93\x7f"), "1.2.999999999"},
        OidCase{Z("\x2a\x8f\xff\xff\xff\x7f"), "1.2.4294967295"},
        // The 80 of the first arc are taken off a number with nothing but zeros at its end.
        OidCase{Z("\x83\xdc\xeb\x94\x0a"), "2.999999930"},
        OidCase{Z("\x83\xdc\xeb\x94\x50"), "2.1000000000"},
        OidCase{Z("\x2a\x81\xff\xff\xff\xff\xff\xff\xff\xff\x7f"), "1.2.18446744073709551615"},
        OidCase{Z("\x2a\x82\x80\x80\x80\x80\x80\x80\x80\x80\x00"), "1.2.18446744073709551616"},
        // 2.25 and a number of 128 bits, as X.667 makes them.
        OidCase{
            Z("\x69\x83\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\x7f"),
            "2.25.340282366920938463463374607431768211455"},
        // 133 bits, also in the first number.
        OidCase{"\x2a" + std::string(18, '\xff') + "\x7f",
                "1.2.10889035741470030830827987437816582766591"},
        OidCase{std::string(18, '\xff') + "\x7f", "2.10889035741470030830827987437816582766511"}));

TEST(DottedOids, WithSuperfluousZerosStandForNothing) {
  const Parsed cert(Certificate().Subject({{"CN", "x"}}).Der());
  EXPECT_EQ(cert.SubjectAttr("2.5.4.3").text, "x");
  for (const char* word : {"2.5.4.03", "02.5.4.3", "2.5.4.3 ", "2.5.4", "2.5.4.", "2", "2.5.4.3.0"})
    EXPECT_EQ(cert.SubjectAttr(word).code, -2) << word;
}

TEST(DottedOids, WithAnArcTooLargeToBeWrittenAreNotFoundButDoNotHideOthers) {
  const std::string type = der::Tlv(0x06, "\x2a" + std::string(19, '\xff') + "\x7f");
  const Parsed cert(WithSubject(der::Sequence(der::Set(der::Sequence(type, der::Utf8("x"))),
                                              der::Set(der::Attribute("CN", der::Utf8("y")))))
                        .Der());
  EXPECT_EQ(cert.SubjectAttr("2.5.4.3").text, "y");
  EXPECT_EQ(cert.SubjectAttr("1.2.3").code, -2);
  EXPECT_EQ(cert.Subject().text, "");
  EXPECT_EQ(cert.Subject().code, CodeOf(Reason::kOidArcTooLarge));
}

struct StringCase {
  const char* name;
  int tag;
  std::string contents;
  std::string utf8;
};

void PrintTo(const StringCase& one, std::ostream* out) {
  *out << one.name;
}

class StringTypes : public testing::TestWithParam<StringCase> {};

TEST_P(StringTypes, BecomeUtf8) {
  const std::string name = NameOf(der::Tlv(GetParam().tag, GetParam().contents));
  Certificate certificate = WithSubject(name);
  certificate.issuer = name;
  const Parsed cert(certificate.Der());
  ASSERT_EQ(cert.code(), 0) << cert_error_text(cert.code());
  EXPECT_EQ(cert.SubjectAttr("CN").text, GetParam().utf8);
  EXPECT_EQ(cert.IssuerAttr("CN").text, GetParam().utf8);
  EXPECT_EQ(cert.Subject().text, "CN=" + GetParam().utf8);
}

INSTANTIATE_TEST_SUITE_P(
    Types, StringTypes,
    testing::Values(
        StringCase{"Utf8String", 0x0c, "a\xc3\xa9\xf4\x8f\xbf\xbf", "a\xc3\xa9\xf4\x8f\xbf\xbf"},
        StringCase{
            "Utf8StringBounds", 0x0c,
            "~\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf\xf0\x90\x80\x80"
            "a",
            "~\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf\xf0\x90\x80\x80"
            "a"},
        StringCase{"NumericString", 0x12, "12 34", "12 34"},
        StringCase{"PrintableString", 0x13, "Aa0 '()-./:=?", "Aa0 '()-./:=?"},
        StringCase{"T61String", 0x14, "a\xe9\xff\x80", "a\xc3\xa9\xc3\xbf\xc2\x80"},
        StringCase{"Ia5String", 0x16, "a@b~", "a@b~"},
        StringCase{"VisibleString", 0x1a, "a@b~", "a@b~"},
        StringCase{"UniversalString", 0x1c, Z("\0\0\0a\0\0\x20\xac\0\x01\xf6\x42"),
                   "a\xe2\x82\xac\xf0\x9f\x99\x82"},
        StringCase{"BmpString", 0x1e, Z("\0a\0\xe9\x20\xac"), "a\xc3\xa9\xe2\x82\xac"},
        StringCase{"Utf8StringEmpty", 0x0c, "", ""}, StringCase{"BmpStringEmpty", 0x1e, "", ""},
        StringCase{"UniversalStringEmpty", 0x1c, "", ""}),
    [](const auto& one) { return one.param.name; });

TEST(Attributes, AreTheFirstInTheOrderOfTheCertificate) {
  const std::string subject = der::Sequence(der::Set(der::Attribute("OU", der::Utf8("first"))),
                                            der::Set(der::Attribute("OU", der::Utf8("second")),
                                                     der::Attribute("OU", der::Utf8("thirdd"))));
  EXPECT_EQ(Parsed(WithSubject(subject).Der()).SubjectAttr("OU").text, "first");
}

TEST(Attributes, OfSubjectAndIssuerAreKeptApart) {
  const Parsed cert(
      Certificate().Subject({{"CN", "s"}, {"O", "o"}}).Issuer({{"CN", "i"}, {"L", "l"}}).Der());
  EXPECT_EQ(cert.SubjectAttr("CN").text, "s");
  EXPECT_EQ(cert.IssuerAttr("CN").text, "i");
  EXPECT_EQ(cert.SubjectAttr("L").code, -2);
  EXPECT_EQ(cert.IssuerAttr("O").code, -2);
}

TEST(Attributes, AbsentLeaveAnEmptyText) {
  const Parsed cert(Certificate().Der());
  EXPECT_EQ(cert.SubjectAttr("title").code, -2);
  EXPECT_EQ(cert.SubjectAttr("title").text, "");
  EXPECT_EQ(cert.SubjectAttr("title", 0).code, -2);
}

TEST(Attributes, OfAnUnknownWordAreAbsent) {
  const Parsed cert(Certificate().Der());
  for (const char* word : {"", "common_name", "commonNam", "commonNames", "C N", "CN ", "colour"}) {
    EXPECT_EQ(cert.SubjectAttr(word).code, -2) << word;
    EXPECT_EQ(cert.IssuerAttr(word).code, -2) << word;
  }
}

TEST(Attributes, TellAnAbsentOneFromOneThatIsNoText) {
  Certificate description;
  description.issuer = der::Sequence(der::Set(der::Attribute("2.5.4.45", der::BitString("x"))));
  const Parsed cert(description.Der());
  EXPECT_EQ(cert.IssuerAttr("commonName").code, -2);
  EXPECT_EQ(cert.IssuerAttr("x500UniqueIdentifier").code, CodeOf(Reason::kAttributeNotText));
  EXPECT_EQ(cert.IssuerAttr("x500UniqueIdentifier").text, "");
}

struct WordCase {
  const char* long_word;
  const char* short_word;
  const char* dotted;
};

void PrintTo(const WordCase& one, std::ostream* out) {
  *out << one.long_word;
}

class AttributeWords : public testing::TestWithParam<WordCase> {};

TEST_P(AttributeWords, NameTheTypeInLongAndShortFormAndInEitherCase) {
  const Parsed cert(Certificate().Subject({{GetParam().dotted, "x"}}).Der());
  const auto upper = [](std::string word) {
    for (char& c : word)
      c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return word;
  };
  for (const std::string word : {GetParam().long_word, GetParam().short_word, GetParam().dotted}) {
    EXPECT_EQ(cert.SubjectAttr(word).text, "x") << word;
    EXPECT_EQ(cert.SubjectAttr(upper(word)).text, "x") << word;
  }
  EXPECT_EQ(cert.Subject().text, std::string(GetParam().short_word) + "=x");
}

// The whole list of certificate.h.
INSTANTIATE_TEST_SUITE_P(
    Types, AttributeWords,
    testing::Values(
        WordCase{"commonName", "CN", "2.5.4.3"}, WordCase{"surname", "SN", "2.5.4.4"},
        WordCase{"serialNumber", "serialNumber", "2.5.4.5"},
        WordCase{"countryName", "C", "2.5.4.6"}, WordCase{"localityName", "L", "2.5.4.7"},
        WordCase{"stateOrProvinceName", "ST", "2.5.4.8"},
        WordCase{"streetAddress", "street", "2.5.4.9"},
        WordCase{"organizationName", "O", "2.5.4.10"},
        WordCase{"organizationalUnitName", "OU", "2.5.4.11"},
        WordCase{"title", "title", "2.5.4.12"}, WordCase{"description", "description", "2.5.4.13"},
        WordCase{"searchGuide", "searchGuide", "2.5.4.14"},
        WordCase{"businessCategory", "businessCategory", "2.5.4.15"},
        WordCase{"postalAddress", "postalAddress", "2.5.4.16"},
        WordCase{"postalCode", "postalCode", "2.5.4.17"},
        WordCase{"postOfficeBox", "postOfficeBox", "2.5.4.18"},
        WordCase{"physicalDeliveryOfficeName", "physicalDeliveryOfficeName", "2.5.4.19"},
        WordCase{"telephoneNumber", "telephoneNumber", "2.5.4.20"},
        WordCase{"telexNumber", "telexNumber", "2.5.4.21"},
        WordCase{"teletexTerminalIdentifier", "teletexTerminalIdentifier", "2.5.4.22"},
        WordCase{"facsimileTelephoneNumber", "facsimileTelephoneNumber", "2.5.4.23"},
        WordCase{"x121Address", "x121Address", "2.5.4.24"},
        WordCase{"internationaliSDNNumber", "internationaliSDNNumber", "2.5.4.25"},
        WordCase{"registeredAddress", "registeredAddress", "2.5.4.26"},
        WordCase{"destinationIndicator", "destinationIndicator", "2.5.4.27"},
        WordCase{"preferredDeliveryMethod", "preferredDeliveryMethod", "2.5.4.28"},
        WordCase{"member", "member", "2.5.4.31"}, WordCase{"owner", "owner", "2.5.4.32"},
        WordCase{"roleOccupant", "roleOccupant", "2.5.4.33"},
        WordCase{"seeAlso", "seeAlso", "2.5.4.34"},
        WordCase{"userPassword", "userPassword", "2.5.4.35"}, WordCase{"name", "name", "2.5.4.41"},
        WordCase{"givenName", "GN", "2.5.4.42"}, WordCase{"initials", "initials", "2.5.4.43"},
        WordCase{"generationQualifier", "generationQualifier", "2.5.4.44"},
        WordCase{"x500UniqueIdentifier", "x500UniqueIdentifier", "2.5.4.45"},
        WordCase{"dnQualifier", "dnQualifier", "2.5.4.46"},
        WordCase{"enhancedSearchGuide", "enhancedSearchGuide", "2.5.4.47"},
        WordCase{"distinguishedName", "distinguishedName", "2.5.4.49"}),
    [](const auto& one) { return one.param.long_word; });

INSTANTIATE_TEST_SUITE_P(
    MoreTypes, AttributeWords,
    testing::Values(
        WordCase{"uniqueMember", "uniqueMember", "2.5.4.50"},
        WordCase{"houseIdentifier", "houseIdentifier", "2.5.4.51"},
        WordCase{"dmdName", "dmdName", "2.5.4.54"}, WordCase{"pseudonym", "pseudonym", "2.5.4.65"},
        WordCase{"role", "role", "2.5.4.72"},
        WordCase{"organizationIdentifier", "organizationIdentifier", "2.5.4.97"},
        WordCase{"countryCode3c", "c3", "2.5.4.98"}, WordCase{"countryCode3n", "n3", "2.5.4.99"},
        WordCase{"dnsName", "dnsName", "2.5.4.100"},
        WordCase{"userId", "UID", "0.9.2342.19200300.100.1.1"},
        WordCase{"rfc822Mailbox", "mail", "0.9.2342.19200300.100.1.3"},
        WordCase{"domainComponent", "DC", "0.9.2342.19200300.100.1.25"},
        WordCase{"uniqueIdentifier", "uniqueIdentifier", "0.9.2342.19200300.100.1.44"},
        WordCase{"emailAddress", "emailAddress", "1.2.840.113549.1.9.1"},
        WordCase{"unstructuredName", "unstructuredName", "1.2.840.113549.1.9.2"},
        WordCase{"unstructuredAddress", "unstructuredAddress", "1.2.840.113549.1.9.8"},
        WordCase{"jurisdictionLocalityName", "jurisdictionL", "1.3.6.1.4.1.311.60.2.1.1"},
        WordCase{"jurisdictionStateOrProvinceName", "jurisdictionST", "1.3.6.1.4.1.311.60.2.1.2"},
        WordCase{"jurisdictionCountryName", "jurisdictionC", "1.3.6.1.4.1.311.60.2.1.3"},
        WordCase{"placeOfBirth", "id-pda-placeOfBirth", "1.3.6.1.5.5.7.9.2"},
        WordCase{"gender", "id-pda-gender", "1.3.6.1.5.5.7.9.3"},
        WordCase{"countryOfCitizenship", "id-pda-countryOfCitizenship", "1.3.6.1.5.5.7.9.4"},
        WordCase{"countryOfResidence", "id-pda-countryOfResidence", "1.3.6.1.5.5.7.9.5"},
        WordCase{"INN", "INN", "1.2.643.3.131.1.1"}, WordCase{"OGRN", "OGRN", "1.2.643.100.1"},
        WordCase{"SNILS", "SNILS", "1.2.643.100.3"}, WordCase{"OGRNIP", "OGRNIP", "1.2.643.100.5"}),
    [](const auto& one) { return one.param.long_word; });

// Extensions.

TEST(IsCa, IsWhatBasicConstraintsSay) {
  EXPECT_EQ(Parsed(Certificate().Ca(true).Der()).IsCa(), 1);
  EXPECT_EQ(Parsed(Certificate().Ca(false).Der()).IsCa(), 0);
}

TEST(IsCa, IsNoWithoutBasicConstraints) {
  EXPECT_EQ(Parsed(Certificate().KeyUsage(4).Der()).IsCa(), 0);
}

TEST(IsCa, DoesNotDependOnThePathLength) {
  for (const std::string& length :
       {Z("\x00"), Z("\x7f"), Z("\x00\xff"), Z("\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00")}) {
    const std::string yes = der::Boolean(0xff) + der::Integer(length);
    EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(yes)).Der()).IsCa(), 1);
    EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(der::Integer(length))).Der()).IsCa(),
              0);
  }
}

TEST(KeyUsage, AbsentIsNotTheSameAsEmpty) {
  const Parsed absent(Certificate().Der());
  EXPECT_EQ(absent.KeyUsageCode(), -2);
  EXPECT_EQ(absent.KeyUsage(), -1);
  const Parsed empty(Certificate().KeyUsage(0).Der());
  EXPECT_EQ(empty.KeyUsageCode(), 0);
  EXPECT_EQ(empty.KeyUsage(), 0);
}

// The layout that users write filters against. Bit 0 of the extension is the highest of its first
// octet (X.690, 8.6.2).
TEST(KeyUsage, EveryNamedBitHasItsNumber) {
  const struct {
    std::string octets;
    int usage;
  } bits[] = {{"\x80", 128}, {"\x40", 64}, {"\x20", 32}, {"\x10", 16},          {"\x08", 8},
              {"\x04", 4},   {"\x02", 2},  {"\x01", 1},  {Z("\x00\x80"), 32768}};
  for (const auto& bit : bits) {
    const Parsed cert(
        Certificate().Add(der::KeyUsageExtension(der::BitString(bit.octets, 0))).Der());
    EXPECT_EQ(cert.KeyUsageCode(), 0) << bit.usage;
    EXPECT_EQ(cert.KeyUsage(), bit.usage);
  }
}

TEST(KeyUsage, BitsWithoutANameSayNothing) {
  const Parsed cert(
      Certificate().Add(der::KeyUsageExtension(der::BitString("\x80\xff\xff", 0))).Der());
  EXPECT_EQ(cert.KeyUsageCode(), 0);
  EXPECT_EQ(cert.KeyUsage(), 128 | 32768);
}

// Serial and key.

TEST(Serial, IsTheIntegerAsEncoded) {
  for (const std::string& serial : {Z("\x00"), Z("\x01"), Z("\x00\x80"), Z("\x80"), Z("\xff"),
                                    Z("\xff\x7f"), std::string(21, 'x'), std::string(16834, 'x')}) {
    EXPECT_EQ(Parsed(Certificate().Serial(serial).Der()).Serial().octets, serial);
  }
}

TEST(Serial, OfOneZeroOctetHasLengthOne) {
  EXPECT_EQ(Parsed(Certificate().Serial(Z("\x00")).Der()).Serial().octets, Z("\x00"));
}

TEST(RsaKey, IsWithoutLeadingZero) {
  const std::string modulus = "\xc1" + std::string(255, 'm');
  const Parsed cert(Certificate().Rsa(modulus, {'\x01', '\x00', '\x01'}).Der());
  EXPECT_EQ(cert.Modulus().octets, modulus);
  EXPECT_EQ(cert.Modulus().octets.size(), 256U);
  EXPECT_EQ(cert.Exponent().octets, Z("\x01\x00\x01"));
}

TEST(RsaKey, MayLackItsParameters) {
  Certificate certificate;
  certificate.public_key =
      der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", ""),
                     der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")));
  EXPECT_EQ(Parsed(certificate.Der()).Modulus().octets, "\xc1");
}

}  // namespace
