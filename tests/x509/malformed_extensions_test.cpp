// Extensions that are malformed or easily misread.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

Certificate ManyExtensions(int count) {
  Certificate certificate;
  for (int i = 0; i < count; ++i)
    certificate.Add(der::Extension("1.2." + std::to_string(i), ""));
  return certificate;
}

TEST(Malformed, RefusesDuplicateExtensions) {
  const std::string no = der::Extension("2.5.29.19", der::Sequence());
  const std::string yes = der::BasicConstraints(der::Boolean(0xff));
  EXPECT_EQ(ParseCode(Certificate().Add(no).Add(yes).Der()), CodeOf(Reason::kExtensionDuplicate));
  EXPECT_EQ(ParseCode(Certificate().Add(yes).Add(yes).Der()), CodeOf(Reason::kExtensionDuplicate));
  EXPECT_EQ(ParseCode(Certificate().KeyUsage(4).Ca(true).KeyUsage(8).Der()),
            CodeOf(Reason::kExtensionDuplicate));
  // Around the number of extensions that is searched without an allocation, and far beyond it.
  for (const int count : {31, 32, 33, 34, 10000}) {
    Certificate certificate = ManyExtensions(count);
    EXPECT_EQ(ParseCode(certificate.Der()), 0) << count;
    certificate.Add(der::Extension("1.2.0", "again"));
    EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kExtensionDuplicate)) << count;
  }
}

TEST(Malformed, RefusesExtensionsBeforeVersion3) {
  for (const std::string& version : {std::string(), der::Context(0, der::Integer("\x01"))}) {
    Certificate certificate;
    certificate.version = version;
    EXPECT_EQ(ParseCode(certificate.Ca(true).Der()), CodeOf(Reason::kExtensionsVersion));
  }
}

TEST(Malformed, RefusesEmptyExtensionList) {
  Certificate certificate;
  certificate.after_extensions = der::Context(3, der::Sequence());
  EXPECT_EQ(ParseCode(certificate.Der()), CodeOf(Reason::kExtensionsEmpty));
}

TEST(Malformed, UnreadableBasicConstraintsAreAnError) {
  const std::pair<std::string, Reason> values[] = {
      {"", Reason::kBasicConstraintsType},
      {Bytes("\x00"), Reason::kBasicConstraintsType},
      {Bytes("\x31\x00"), Reason::kBasicConstraintsType},
      {Bytes("\x30"), Reason::kHeaderCutShort},
      {Bytes("\x30\x01\x01"), Reason::kHeaderCutShort},
      {Bytes("\x30\x80\x00\x00"), Reason::kIndefiniteLength},
      {Bytes("\x30\x81\x00"), Reason::kLengthNotMinimal},
      {Bytes("\x30\x01"), Reason::kContentsCutShort},
      {Bytes("\x30\x03\x01\x01"), Reason::kContentsCutShort},
      {Bytes("\x30\x02\x01\x00"), Reason::kBooleanLength},
      {Bytes("\x30\x04\x01\x02\x00\x00"), Reason::kBooleanLength},
      {Bytes("\x30\x00\x00"), Reason::kBasicConstraintsTrailing},
      {Bytes("\x30\x02\x05\x00"), Reason::kPathLengthType},
      {Bytes("\x30\x06\x01\x01\x00\x01\x01\xff"), Reason::kPathLengthType},
      {Bytes("\x30\x03\x02\x01\xff"), Reason::kPathLengthNegative},
      {Bytes("\x30\x02\x02\x00"), Reason::kIntegerEmpty}};
  for (const auto& [value, reason] : values) {
    const Parsed cert(Certificate().Add(der::Extension("2.5.29.19", value)).Der());
    EXPECT_EQ(cert.code(), 0);
    EXPECT_EQ(cert.IsCa(), -CodeOf(reason));
  }
}

TEST(Malformed, DistinguishesEmptyFromAbsentKeyUsage) {
  for (const std::string& bits :
       {der::BitString(""), der::BitString(Bytes("\x00")), der::BitString(Bytes("\x00\x00"))}) {
    const Parsed cert(Certificate().Add(der::KeyUsageExtension(bits)).Der());
    EXPECT_EQ(cert.KeyUsageCode(), 0);
    EXPECT_EQ(cert.KeyUsage(), 0);
  }
  EXPECT_EQ(Parsed(Certificate().Der()).KeyUsageCode(), -2);
}

}  // namespace
