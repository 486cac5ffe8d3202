// cardcert present
#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;

class PresentTest : public CardcertTest {};

TEST_F(PresentTest, DistinguishesPresentFromAbsent) {
  const Finished there = Cardcert({"present", "1024"});
  EXPECT_EQ(there.status, 0);
  EXPECT_THAT(there.out, HasSubstr("Short  1024  1024 bits  any  SoftHSM slot"));
  const Finished absent = Cardcert({"present", "abcdef"});
  EXPECT_EQ(absent.status, 4);
  EXPECT_EQ(absent.out, "");
  EXPECT_EQ(absent.err,
            LeftOutWarning() + Error("no token has a certificate with the serial 'abcdef'"));
}

TEST_F(PresentTest, AcceptsSerialSpellings) {
  for (const char* const serial : {"4fa107", "4FA107", "0x4fa107", "4F:A1:07", "00:4f:a1:07"})
    EXPECT_EQ(Cardcert({"present", serial}).status, 0) << serial;
}

TEST_F(PresentTest, AcceptsCopiesOfOneCertificate) {
  // "sign" is on both tokens.
  const Finished run = Cardcert({"present", "4fa107"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, testing::MatchesRegex("Jürgen 山田  4fa107  2048 bits  digitalSignature, "
                                             "nonRepudiation  SoftHSM slot ID 0x[0-9a-f]+\n"));
  EXPECT_EQ(run.err, "");
}

TEST_F(PresentTest, ListsDifferentCertificatesWithOneSerial) {
  const Finished run = Cardcert({"present", "f1e2"});
  EXPECT_EQ(run.status, 5);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(Masked(run.err), IsErrorAboutPlainAndTwin());
  // Names and subjects may be equal, so the message shows the beginning of the modulus.
  for (const char* const key : {"00f1e2 Plain", "00f1e2 Twin"}) {
    const std::string modulus = List()[key]["modulus"];
    EXPECT_THAT(run.err, HasSubstr("  modulus " + modulus.substr(0, 16) + "...  CN="));
  }
}

TEST_F(PresentTest, FindsCertificatesWithoutAnRsaKey) {
  EXPECT_EQ(Cardcert({"present", "0c25"}).status, 0);
  EXPECT_EQ(Cardcert({"present", "C25"}).status, 0);
}

TEST_F(PresentTest, NotesSkippedCertificatesIfNoneIsFound) {
  EXPECT_EQ(Cardcert({"present", "0c25"}).err, LeftOutWarning());
  EXPECT_EQ(Cardcert({"present", "abcdef"}).err,
            LeftOutWarning() + Error("no token has a certificate with the serial 'abcdef'"));
  EXPECT_EQ(Cardcert({"present", "1024"}).err, "");
}

}  // namespace
