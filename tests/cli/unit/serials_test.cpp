#include "cli/certificates/serials.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace cardcert::cli {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

pkcs11_certificate Record(const std::string& serial, const std::string& subject) {
  pkcs11_certificate record;
  record.serial = serial;
  record.subject = subject;
  return record;
}

class SerialSpellingTest : public testing::TestWithParam<const char*> {};

TEST_P(SerialSpellingTest, FindsTheCertificate) {
  const std::list<pkcs11_certificate> records = {Record("4fa108", "other"),
                                                 Record("004fa107", "it")};
  const std::optional<Serial> serial = Serial::Parse(GetParam());
  ASSERT_TRUE(serial);
  EXPECT_THAT(serial->Find(records), ElementsAre(&records.back()));
}

INSTANTIATE_TEST_SUITE_P(Serials, SerialSpellingTest,
                         testing::Values("4fa107", "4FA107", "0x4fa107", "0X4FA107", "4f:a1:07",
                                         "00:4F:A1:07", "004fa107", "0x0004fa107", "04fa107",
                                         "4f:a1:7", "0x4F:A1:7", "0:4f:a1:7"));

class InvalidSerialTest : public testing::TestWithParam<const char*> {};

TEST_P(InvalidSerialTest, IsRefused) {
  EXPECT_FALSE(Serial::Parse(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Serials, InvalidSerialTest,
                         testing::Values("", ":", "0x", "0x:", "-1", "4f a1", "4fg1", "x4f", "4f\n",
                                         "0x0x4f"));

TEST(SerialTest, AcceptsZero) {
  const std::list<pkcs11_certificate> records = {Record("00", "zero")};
  EXPECT_THAT(Serial::Parse("0")->Find(records), SizeIs(1));
  EXPECT_THAT(Serial::Parse("0x0000")->Find(records), SizeIs(1));
  EXPECT_THAT(Serial::Parse("1")->Find(records), SizeIs(0));
}

TEST(SerialTest, PrefersTheExactSpelling) {
  const std::list<pkcs11_certificate> records = {Record("f1", "negative"),
                                                 Record("00f1", "positive")};
  EXPECT_THAT(Serial::Parse("00F1")->Find(records), ElementsAre(&records.back()));
  EXPECT_THAT(Serial::Parse("f1")->Find(records), ElementsAre(&records.front()));
  EXPECT_THAT(Serial::Parse("000f1")->Find(records), SizeIs(2));
}

TEST(SerialTest, ReadsASingleDigitBetweenColonsAsAByte) {
  EXPECT_EQ(Serial::Parse("4:f:a1")->Spellings().front(), "040fa1");
  EXPECT_EQ(Serial::Parse("4f:a")->Spellings().front(), "4f0a");
  EXPECT_EQ(Serial::Parse("123:4")->Spellings().front(), "12304");
  EXPECT_EQ(Serial::Parse("4f::a1:")->Spellings().front(), "4fa1");
  EXPECT_EQ(Serial::Parse("123")->Spellings().front(), "123");
}

TEST(SerialTest, ListsPossibleEncodings) {
  EXPECT_THAT(Serial::Parse("0xF1E2")->Spellings(), ElementsAre("f1e2", "00f1e2"));
  EXPECT_THAT(Serial::Parse("123")->Spellings(), ElementsAre("123", "0123", "000123"));
}

TEST(SerialTest, TreatsACopyOnAnotherTokenAsTheSameCertificate) {
  pkcs11_certificate a = Record("01", "A");
  pkcs11_certificate copy = a;
  copy.slot_description = "another";
  copy.presentable_name = {"named by its card"};
  EXPECT_THAT(WithoutCopies({&a, &copy}), ElementsAre(&a));
}

TEST(SerialTest, DistinguishesCertificatesByKeySubjectAndUsage) {
  const pkcs11_certificate a = Record("01", "A");
  pkcs11_certificate other_key = a;
  other_key.modulus_len = 1;
  pkcs11_certificate other_subject = a;
  other_subject.subject = "B";
  pkcs11_certificate other_use = a;
  other_use.key_usage = 128;
  EXPECT_THAT(WithoutCopies({&a, &other_key, &other_subject, &other_use}), SizeIs(4));
}

}  // namespace
}  // namespace cardcert::cli
