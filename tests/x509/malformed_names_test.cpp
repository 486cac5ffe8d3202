// Names that are malformed or easily misread.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Malformed, RefusesNulInName) {
  const std::pair<std::string, Reason> values[] = {
      {der::Utf8(Bytes("good.example\0.bad.example")), Reason::kStringNul},
      {der::Printable(Bytes("a\0b")), Reason::kStringNul},
      {der::Ia5(Bytes("\0")), Reason::kStringNul},
      {der::Tlv(0x14, Bytes("a\0")), Reason::kStringNul},
      {der::Tlv(0x1e, Bytes("\0a\0\0\0b")), Reason::kStringNul},
      {der::Tlv(0x1c, Bytes("\0\0\0a\0\0\0\0")), Reason::kStringNul},
      // NUL is not in the character set of these types.
      {der::Tlv(0x1a, Bytes("a\0b")), Reason::kVisibleStringSet},
      {der::Tlv(0x12, Bytes("1\0")), Reason::kNumericStringSet}};
  for (const auto& [value, reason] : values) {
    EXPECT_EQ(ParseCode(WithSubject(NameOf(value)).Der()), CodeOf(reason));
    Certificate issuer;
    issuer.issuer = NameOf(value);
    EXPECT_EQ(ParseCode(issuer.Der()), CodeOf(reason));
  }
}

TEST(Malformed, EscapesValueThatLooksLikeAnotherAttribute) {
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

TEST(Malformed, RefusesInvalidWideStrings) {
  struct Wide {
    int tag;
    Reason reason;
    std::string contents;
  };
  const Wide strings[] = {{0x1e, Reason::kBmpStringLength, Bytes("\0")},
                          {0x1e, Reason::kBmpStringLength, Bytes("\0a\0")},
                          {0x1e, Reason::kBmpStringSurrogate, Bytes("\xd8\x00")},
                          {0x1e, Reason::kBmpStringSurrogate, Bytes("\xdb\xff")},
                          {0x1e, Reason::kBmpStringSurrogate, Bytes("\xdc\x00")},
                          {0x1e, Reason::kBmpStringSurrogate, Bytes("\xdf\xff")},
                          {0x1e, Reason::kBmpStringSurrogate, Bytes("\xd8\x3d\xde\x42")},
                          {0x1c, Reason::kUniversalStringLength, Bytes("\0")},
                          {0x1c, Reason::kUniversalStringLength, Bytes("\0\0")},
                          {0x1c, Reason::kUniversalStringLength, Bytes("\0\0\0")},
                          {0x1c, Reason::kUniversalStringLength, Bytes("\0\0\0a\0")},
                          {0x1c, Reason::kUniversalStringRange, Bytes("\0\0\xd8\0")},
                          {0x1c, Reason::kUniversalStringRange, Bytes("\0\0\xdf\xff")},
                          {0x1c, Reason::kUniversalStringRange, Bytes("\0\x11\0\0")},
                          {0x1c, Reason::kUniversalStringRange, Bytes("\xff\xff\xff\xff")},
                          {0x1c, Reason::kUniversalStringRange, Bytes("\x80\0\0a")}};
  for (const Wide& wide : strings) {
    EXPECT_EQ(ParseCode(WithSubject(NameOf(der::Tlv(wide.tag, wide.contents))).Der()),
              CodeOf(wide.reason))
        << &wide - strings;
  }
}

TEST(Malformed, RefusesOverlongUtf8) {
  for (const char* text : {"\xc0\x80", "\xc0\xaf", "\xc1\xbf", "\xe0\x80\x80", "\xe0\x80\xaf",
                           "\xe0\x9f\xbf", "\xf0\x80\x80\x80", "\xf0\x8f\xbf\xbf",
                           "\xf8\x80\x80\x80\xaf", "\xfc\x80\x80\x80\x80\xaf", "\xfe", "\xff"})
    EXPECT_EQ(ParseCode(Certificate().Subject({{"CN", text}}).Der()),
              CodeOf(Reason::kUtf8StringForm));
}

TEST(Malformed, ChecksBufferSizeAfterConversion) {
  // In UTF-8, an octet of a T61String can take two octets, and two octets of a BMPString three.
  struct Growth {
    int tag;
    std::string character;
    std::size_t utf8_size;
  };
  for (const Growth& growth :
       {Growth{0x14, "\xe9", 2}, Growth{0x13, "\xe9", 2}, Growth{0x1e, "\x20\xac", 3},
        Growth{0x1c, Bytes("\0\x01\xf6\x42"), 4}}) {
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

TEST(Malformed, FindsAttributesByStructureNotByText) {
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

}  // namespace
