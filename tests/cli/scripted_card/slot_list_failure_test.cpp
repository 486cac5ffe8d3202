// Slots and certificates that cannot be listed or read.
#include <algorithm>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;

class SlotListFailureTest : public ScriptedCardTest {};

TEST_F(SlotListFailureTest, FailsIfSlotsCannotBeListed) {
  const std::string in = Write("in", "x");
  for (const Words& words :
       {Words{"list"}, Words{"list", "--json"}, Words{"present", "4fa107"},
        Words{"watch", "--count", "1"}, Words{"watch", "--json", "--count", "1"},
        Words{"sign", "4fa107", "--in", in, "--out", File("sig"), "--pin-file", PinFile()}}) {
    // Fails when asked for the number of slots, and when asked for the slots.
    for (const char* const nth : {"1", "2"}) {
      Card(std::string("fail-from=C_GetSlotList/0x30/") + nth);
      const Finished run = RunCard(words);
      EXPECT_EQ(run.status, 1) << words[0];
      EXPECT_EQ(run.out, "");
      EXPECT_EQ(
          run.err,
          Error("the provider cannot list its slots") +
              Hint("check that what it needs is running: its daemon, or the card reader service"));
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 2) << run.err;
      ExpectNoViolations();
    }
  }
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(SlotListFailureTest, FailsIfTheProviderReportsBillionsOfSlots) {
  const std::string in = Write("in", "x");
  for (const char* const number :
       {"1000001", "0x100000000", "0x1fffffffffffffff", "0x2000000000000000", "-1"}) {
    for (const Words& words :
         {Words{"list"}, Words{"list", "--json"}, Words{"present", "4fa107"},
          Words{"watch", "--count", "1"},
          Words{"sign", "4fa107", "--in", in, "--out", File("sig"), "--pin-file", PinFile()}}) {
      SCOPED_TRACE(words[0] + " " + number);
      Card(std::string("slots=") + number);
      const Finished run = RunCard(words);
      EXPECT_EQ(run.status, 1);
      EXPECT_EQ(run.out, "");
      EXPECT_EQ(run.err,
                Error("the provider reports " + std::to_string(std::stoul(number, nullptr, 0)) +
                      " slots, more than 1000000") +
                    Error("the provider cannot list its slots") +
                    Hint("check that what it needs is running: its daemon, or the card"
                         " reader service"));
      ExpectNoViolations();
    }
  }
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(SlotListFailureTest, DoesNotAskForTheCardIfCertificatesCannotBeRead) {
  Card("fail-from=C_GetAttributeValue/0x11/1");  // CKR_ATTRIBUTE_SENSITIVE
  const Finished run = RunCard({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, Warning("Unable to read certificate") +
                         Progress("no certificate that can be used was found"));
  ExpectNoViolations();
}

TEST_F(SlotListFailureTest, PresentExplainsAWriteProtectedToken) {
  Card("fail-from=C_OpenSession/0xe2/2");  // CKR_TOKEN_WRITE_PROTECTED, but for the list
  const Finished run = RunCard({"present", "4fa107"});
  EXPECT_EQ(run.status, 4);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(
      run.err,
      "cardcert: error: the certificate is listed, but its token cannot be opened for reading and "
      "writing:\n"
      "cardcert:   Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  "
      "Scripted reader\n");
  ExpectNoViolations();
}

TEST_F(SlotListFailureTest, ListsAgainIfASlotAppearsMeanwhile) {
  Card("fail=C_GetSlotList/0x150");  // CKR_BUFFER_TOO_SMALL
  const Finished run = RunCard({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("4fa107"));
  ExpectNoViolations();
}

}  // namespace
