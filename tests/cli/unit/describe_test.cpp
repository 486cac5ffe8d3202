#include "cli/certificates/describe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/certificates/key_usage.h"
#include "cli/output/json.h"
#include "cli/output/table.h"

namespace cardcert::cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

pkcs11_certificate Record() {
  pkcs11_certificate record;
  record.presentable_name = {"Jane"};
  record.serial = "00ab";
  record.key_usage = 128;
  record.matches_filter = true;
  record.modulus_len = 256;
  record.modulus[0] = 0xc0;
  record.public_exponent_len = 3;
  record.slot_description = "Reader";
  return record;
}

TEST(KeyUsageTest, NamesEveryBit) {
  EXPECT_THAT(KeyUsageNames(128), ElementsAre("digitalSignature"));
  EXPECT_THAT(KeyUsageNames(128 + 64), ElementsAre("digitalSignature", "nonRepudiation"));
  EXPECT_THAT(KeyUsageNames(32768), ElementsAre("decipherOnly"));
  EXPECT_THAT(KeyUsageNames(0), IsEmpty());
  EXPECT_THAT(KeyUsageNames(-1), SizeIs(9));
}

TEST(KeyUsageTest, DistinguishesUnrestrictedFromAllBits) {
  EXPECT_EQ(KeyUsageText(-1), "any");
  EXPECT_EQ(KeyUsageText(0), "none");
  EXPECT_EQ(KeyUsageText(4 + 2), "keyCertSign, cRLSign");
  EXPECT_THAT(KeyUsageText(0x80ff), HasSubstr("digitalSignature"));
}

TEST(DescribeTest, IgnoresALeadingZeroByteInKeyLength) {
  pkcs11_certificate record = Record();
  EXPECT_EQ(KeyLengthBits(record), 2048U);
  record.modulus_len = 257;
  EXPECT_EQ(KeyLengthBits(record), 2048U);
}

TEST(DescribeTest, ShowsADashForAMissingPartOfTheName) {
  pkcs11_certificate record = Record();
  record.presentable_name = {"Card", "", "Jane"};
  EXPECT_EQ(NameText(record), "Card / - / Jane");
}

TEST(TableTest, AlignsColumnsForWideCharacters) {
  pkcs11_certificate wide = Record();
  wide.presentable_name = {"山田"};
  wide.is_ca = true;
  EXPECT_EQ(CertificateTable({Record(), wide}),
            "NAME  SERIAL  BITS  KEY USAGE         CA   MATCHES  SLOT\n"
            "Jane  00ab    2048  digitalSignature  no   yes      Reader\n"
            "山田  00ab    2048  digitalSignature  yes  yes      Reader\n");
}

TEST(TableTest, PrintsOneLinePerCertificate) {
  pkcs11_certificate record = Record();
  record.presentable_name = {"a\nb\033[31m"};
  record.slot_description = "slot\r\nspoof";
  const std::string table = CertificateTable({record});
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 2);
  EXPECT_THAT(table, Not(HasSubstr("\033")));
  EXPECT_THAT(table, Not(HasSubstr("\r")));
}

TEST(TableTest, CollapsesBlanksThatCouldForgeAField) {
  pkcs11_certificate record = Record();
  record.presentable_name = {"Jane  4fa107  2048 bits", "any\u00a0\u2003x"};
  record.slot_description = "Reader  CA";
  const std::string fields = "Jane 4fa107 2048 bits / any x  00ab  2048 bits  digitalSignature  ";
  EXPECT_EQ(CertificateLine(record), fields + "Reader CA");
  EXPECT_THAT(CertificateTable({record}),
              HasSubstr("\nJane 4fa107 2048 bits / any x  00ab    2048  "));
}

TEST(TableTest, CutsNamesAt48Columns) {
  pkcs11_certificate record = Record();
  record.presentable_name = {std::string(48, 'x')};
  EXPECT_THAT(CertificateTable({record}), HasSubstr("\n" + std::string(48, 'x') + "  00ab"));
  record.presentable_name = {std::string(49, 'x')};
  EXPECT_THAT(CertificateTable({record}), HasSubstr("\n" + std::string(47, 'x') + "…  00ab"));
}

TEST(TableTest, CutsOverlongSerialsAndShowsTheirLength) {
  pkcs11_certificate record = Record();
  record.serial = std::string(64, 'a');
  EXPECT_THAT(CertificateTable({record}), HasSubstr("  " + std::string(64, 'a') + "  "));
  record.serial = std::string(8000, 'a');
  EXPECT_THAT(CertificateTable({record}), HasSubstr("  aaaaaaaaaaaaaaaa\u2026 (8000 digits)  "));
}

TEST(CertificateLineTest, MarksCaAndFilteredOutCertificates) {
  pkcs11_certificate record = Record();
  EXPECT_EQ(CertificateLine(record), "Jane  00ab  2048 bits  digitalSignature  Reader");
  record.is_ca = true;
  EXPECT_EQ(CertificateLine(record), "Jane  00ab  2048 bits  digitalSignature  CA  Reader");
  record.matches_filter = false;
  EXPECT_EQ(CertificateLine(record),
            "Jane  00ab  2048 bits  digitalSignature  CA  (filtered out)  Reader");
}

TEST(JsonTest, WritesAsciiForAnyBytes) {
  pkcs11_certificate record = Record();
  record.presentable_name = {"\xff\xfe", "Jürgen\033\u009b"};
  record.slot_description = "\xe5";
  const std::string json = CertificatesAsJson({record}, "/m\xfc.so");
  EXPECT_THAT(json, HasSubstr(R"("\ufffd\ufffd")"));
  EXPECT_THAT(json, HasSubstr(R"("J\u00fcrgen\u001b\u009b")"));
  for (const char c : json)
    EXPECT_TRUE(c == '\n' || (' ' <= c && c < 0x7f)) << static_cast<int>(c);
}

TEST(JsonTest, WritesAnEmptyArrayWithoutCertificates) {
  EXPECT_EQ(CertificatesAsJson({}, "m.so"), "[]\n");
}

TEST(JsonTest, WritesAnEventOnOneLine) {
  const std::string line = EventAsJsonLine("added", Record(), "m.so");
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  EXPECT_THAT(line, HasSubstr(R"({"event":"added","certificate":{"name":["Jane"])"));
}

}  // namespace
}  // namespace cardcert::cli
