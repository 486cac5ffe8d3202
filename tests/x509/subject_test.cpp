// The subject as text: order, escapes, dotted types and conversion to UTF-8.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Subject, EmptyNameGivesEmptyText) {
  const Parsed cert(WithSubject(der::Sequence()).Der());
  EXPECT_EQ(cert.Subject().code, 0);
  EXPECT_EQ(cert.Subject().text, "");
  EXPECT_EQ(cert.Subject(1).code, 0);
}

TEST(Subject, StartsWithMostSpecificRdn) {
  EXPECT_EQ(Parsed(Certificate().Subject({{"DC", "test"}, {"DC", "example"}, {"CN", "a"}}).Der())
                .Subject()
                .text,
            "CN=a,DC=example,DC=test");
}

TEST(Subject, JoinsAttributesOfOneRdnWithPlus) {
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

TEST_P(Escapes, MakeSubjectUnambiguous) {
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

TEST(Subject, WritesDerOfDottedTypeInHex) {
  const Parsed cert(
      WithSubject(der::Sequence(der::Set(der::Attribute("1.2.3.4", der::Utf8("Hi"))))).Der());
  EXPECT_EQ(cert.Subject().text, "1.2.3.4=#0C024869");
  EXPECT_EQ(cert.SubjectAttr("1.2.3.4").text, "Hi");
}

TEST(Subject, WritesDerOfNonStringInHex) {
  EXPECT_EQ(Parsed(WithSubject(NameOf(der::BitString("\xa0", 5))).Der()).Subject().text,
            "CN=#030205A0");
  EXPECT_EQ(Parsed(WithSubject(NameOf(der::Sequence(der::Utf8(Bytes("\0"))))).Der()).Subject().text,
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
        OidCase{Bytes("\x00"), "0.0"}, OidCase{Bytes("\x27"), "0.39"},
        OidCase{Bytes("\x28"), "1.0"}, OidCase{Bytes("\x4f"), "1.39"},
        OidCase{Bytes("\x50"), "2.0"}, OidCase{Bytes("\x7f"), "2.47"},
        OidCase{Bytes("\x88\x37"), "2.999"}, OidCase{Bytes("\x2a\x00"), "1.2.0"},
        OidCase{Bytes("\x2a\x83\xdc\xeb\x94\x00"), "1.2.1000000000"},
        OidCase{Bytes("\x2a\x83\xdc\xeb\x93\x7f"), "1.2.999999999"},
        OidCase{Bytes("\x2a\x8f\xff\xff\xff\x7f"), "1.2.4294967295"},
        // The first number holds the arc plus 80; subtracting them borrows from trailing zeros.
        OidCase{Bytes("\x83\xdc\xeb\x94\x0a"), "2.999999930"},
        OidCase{Bytes("\x83\xdc\xeb\x94\x50"), "2.1000000000"},
        OidCase{Bytes("\x2a\x81\xff\xff\xff\xff\xff\xff\xff\xff\x7f"), "1.2.18446744073709551615"},
        OidCase{Bytes("\x2a\x82\x80\x80\x80\x80\x80\x80\x80\x80\x00"), "1.2.18446744073709551616"},
        // 2.25 followed by a number of 128 bits (a UUID, X.667).
        OidCase{
            Bytes(
                "\x69\x83\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\x7f"),
            "2.25.340282366920938463463374607431768211455"},
        // Arcs of 133 bits, the second one in the first number.
        OidCase{"\x2a" + std::string(18, '\xff') + "\x7f",
                "1.2.10889035741470030830827987437816582766591"},
        OidCase{std::string(18, '\xff') + "\x7f", "2.10889035741470030830827987437816582766511"}));

TEST(DottedOids, NonCanonicalFormIsUnknown) {
  const Parsed cert(Certificate().Subject({{"CN", "x"}}).Der());
  EXPECT_EQ(cert.SubjectAttr("2.5.4.3").text, "x");
  for (const char* word : {"2.5.4.03", "02.5.4.3", "2.5.4.3 ", "2.5.4", "2.5.4.", "2", "2.5.4.3.0"})
    EXPECT_EQ(cert.SubjectAttr(word).code, -2) << word;
}

TEST(DottedOids, OversizedArcDoesNotHideOtherAttributes) {
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

TEST_P(StringTypes, AreConvertedToUtf8) {
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
        StringCase{"UniversalString", 0x1c, Bytes("\0\0\0a\0\0\x20\xac\0\x01\xf6\x42"),
                   "a\xe2\x82\xac\xf0\x9f\x99\x82"},
        StringCase{"BmpString", 0x1e, Bytes("\0a\0\xe9\x20\xac"), "a\xc3\xa9\xe2\x82\xac"},
        StringCase{"Utf8StringEmpty", 0x0c, "", ""}, StringCase{"BmpStringEmpty", 0x1e, "", ""},
        StringCase{"UniversalStringEmpty", 0x1c, "", ""}),
    [](const auto& one) { return one.param.name; });

}  // namespace
