// Generated certificates with large names, every string type and every character.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "expect_agreement.h"
#include "host/x509/name_text.h"
#include "host/x509/names.h"
#include "host/x509/strings.h"
#include "host/x509/text_writer.h"
#include "parsed.h"

namespace {

namespace x509 = cardcert::x509;
using der::Certificate;

TEST(Generated, WritesSubjectOf100000Rdns) {
  const std::string rdn = der::Set(der::Sequence(der::Tlv(0x06, "\x2a"), der::Utf8("")));
  std::string rdns;
  for (int i = 0; i < 100000; ++i)
    rdns += rdn;
  Certificate certificate;
  certificate.subject = der::Sequence(rdns);
  const Parsed cert(certificate.Der());
  EXPECT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.Subject().code, CodeOf(Reason::kBufferTooSmall));
  const Text whole = cert.Subject(100000 * 10);
  EXPECT_EQ(whole.code, 0);
  EXPECT_EQ(whole.text.size(), 100000 * std::string("1.2=#0C00,").size() - 1);
}

TEST(Generated, AcceptsSubjectOf10000Rdns) {
  Certificate certificate;
  std::string rdns;
  for (int i = 0; i < 10000; ++i)
    rdns += der::Set(der::Attribute("CN", der::Utf8("")));
  certificate.subject = der::Sequence(rdns);
  EXPECT_EQ(ExpectAgreement(certificate.Der()), 0);
}

TEST(Generated, AcceptsRdnOf10000Attributes) {
  std::string attributes;
  for (int i = 0; i < 10000; ++i)
    attributes += der::Attribute("CN", der::Utf8("x"));
  Certificate certificate;
  certificate.subject = der::Sequence(der::Set(attributes));
  EXPECT_EQ(ExpectAgreement(certificate.Der()), 0);
}

TEST(Generated, AgreesOnEveryOctetInEveryStringType) {
  for (const int tag : {0x0c, 0x12, 0x13, 0x14, 0x16, 0x1a, 0x1c, 0x1e}) {
    for (int octet = 0; octet < 256; ++octet) {
      for (const std::string& before :
           {Bytes(""), Bytes("a"), Bytes("\0"), Bytes("\0\0\0"), Bytes("\0\0\0a\0\0\0")}) {
        Certificate certificate;
        certificate.subject = NameOf(der::Tlv(tag, before + static_cast<char>(octet)));
        ExpectAgreement(certificate.Der());
      }
    }
  }
}

TEST(Generated, AgreesOnVisibleStringsInBothNames) {
  std::string characters;
  for (char c = 0x20; c < 0x7f; ++c)
    characters += c;
  const std::string visible = der::Tlv(0x1a, characters);
  const std::string names[] = {NameOf(visible),
                               der::Sequence(der::Set(der::Attribute("CN", der::Printable("a")),
                                                      der::Attribute("O", visible)),
                                             der::Set(der::Attribute("C", visible))),
                               // A type without a name.
                               der::Sequence(der::Set(der::Attribute("1.2.3", visible)))};
  for (const std::string& subject : names) {
    for (const std::string& issuer : names) {
      Certificate certificate;
      certificate.subject = subject;
      certificate.issuer = issuer;
      EXPECT_EQ(ExpectAgreement(certificate.Der()), 0);
    }
  }
}

TEST(Generated, AgreesOnAttributeValuesOfEveryTag) {
  for (int tag = 0; tag < 256; ++tag) {
    for (const std::string& contents :
         {Bytes(""), Bytes("\x00"), Bytes("\x00\x31"), Bytes("1234")}) {
      Certificate certificate;
      certificate.subject = NameOf(der::Tlv(tag, contents));
      ExpectAgreement(certificate.Der());
    }
  }
}

x509::Refusal ReadOne(int tag, const std::string& contents, std::uint32_t* code_point) {
  x509::Element string;
  string.tag = static_cast<unsigned char>(tag);
  string.value = {reinterpret_cast<const unsigned char*>(contents.data()), contents.size()};
  x509::CharacterReader reader(string);
  const x509::Refusal refusal = reader.Next(code_point);
  EXPECT_TRUE(refusal || reader.AtEnd());
  return refusal;
}

bool IsCharacter(std::uint32_t code_point) {
  return code_point != 0 && code_point <= 0x10ffff && (code_point < 0xd800 || code_point > 0xdfff);
}

TEST(Characters, BmpStringHasAllButNulAndSurrogates) {
  for (std::uint32_t unit = 0; unit < 0x10000; ++unit) {
    std::uint32_t read = 0;
    const std::string contents = {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xff)};
    ASSERT_EQ(!ReadOne(0x1e, contents, &read), IsCharacter(unit)) << unit;
    ASSERT_EQ(read, unit);
  }
}

TEST(Characters, UniversalStringAndUtf8StringHaveAllButNulAndSurrogates) {
  for (std::uint32_t unit = 0; unit < 0x120000; ++unit) {
    std::uint32_t read = 0;
    const std::string contents = {
        static_cast<char>(unit >> 24), static_cast<char>(unit >> 16 & 0xff),
        static_cast<char>(unit >> 8 & 0xff), static_cast<char>(unit & 0xff)};
    ASSERT_EQ(!ReadOne(0x1c, contents, &read), IsCharacter(unit)) << unit;
    if (!IsCharacter(unit))
      continue;
    char utf8[8];
    x509::TextWriter writer(utf8, sizeof utf8);
    writer.PutUtf8(unit);
    ASSERT_FALSE(ReadOne(0x0c, std::string(utf8, writer.Length()), &read)) << unit;
    ASSERT_EQ(read, unit);
  }
}

// The writers expect names that were checked. They also refuse others, and stay within bounds.
TEST(NameWriter, RefusesUncheckedNames) {
  const auto bytes = [](const std::string& octets) {
    return x509::Bytes{reinterpret_cast<const unsigned char*>(octets.data()), octets.size()};
  };
  char buffer[100];
  const std::string no_rdn = "x";
  EXPECT_EQ(WriteName(bytes(no_rdn), buffer, sizeof buffer).Code(), CodeOf(Reason::kRdnType));
  const std::string broken = der::Set(der::Attribute("CN", der::Utf8("a\xff")));
  EXPECT_EQ(WriteName(bytes(broken), buffer, sizeof buffer).Code(),
            CodeOf(Reason::kUtf8StringForm));
  x509::Element value;
  value.tag = x509::kUtf8String;
  const std::string text = "a\xff";
  value.value = bytes(text);
  EXPECT_EQ(WriteValue(value, buffer, sizeof buffer).Code(), CodeOf(Reason::kUtf8StringForm));
  x509::CharacterReader at_end{x509::Element()};
  std::uint32_t ignored = 0;
  EXPECT_EQ(at_end.Next(&ignored).Code(), CodeOf(Reason::kContentsCutShort));
}

}  // namespace
