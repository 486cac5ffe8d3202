// What goes wrong with a card, in words; and its coming and going.
#include <algorithm>
#include <csignal>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

struct Failure {
  const char* name;
  const char* card;
  const char* words;
};

class SignFailureTest : public ScriptedCardTest, public testing::WithParamInterface<Failure> {};

TEST_P(SignFailureTest, IsStatus1WithAReason) {
  Card(GetParam().card);
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr(GetParam().words));
  EXPECT_THAT(run.err, HasSubstr("cardcert: nothing was signed\n"));
  EXPECT_TRUE(AllLinesAreMessages(run.err));
  EXPECT_FALSE(Exists(File("sig")));
  ExpectNoViolations();
}

INSTANTIATE_TEST_SUITE_P(
    Card, SignFailureTest,
    testing::Values(Failure{"Removed", "fail=C_Sign/0x32", "(50): the card was removed"},
                    Failure{"Device", "fail=C_Sign/0x30",
                            "(48): the card or its reader has failed"},
                    Failure{"Mechanism", "fail=C_SignInit/0x70", "(112): the token makes no"},
                    Failure{"Forbidden", "fail=C_SignInit/0x68", "(104): the private key may not"},
                    Failure{"LoginForEachSignature", "fail=C_Sign/0x101",
                            "(257): the private key asks for a login of its own"},
                    Failure{"Unexplained", "fail=C_Sign/0x80000001",
                            "Signature operation failed (2147483649)\n"},
                    Failure{"Login", "fail=C_Login/0x100", "Unexpected token login error: 256"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ScriptedCardTest, AProviderThatCancelsIsNotTheUser) {
  Card("fail=C_Sign/1");
  EXPECT_EQ(RunSign({"--pin-file", PinFile()}).status, 1);
}

TEST_F(ScriptedCardTest, WatchShowsACardThatComesAndGoes) {
  Card("remove-at-poll=2 insert-at-poll=9");
  const Finished run = RunCard({"watch", "--interval", "0.05", "--count", "8"});
  EXPECT_EQ(run.status, 0);
  const std::string line =
      "Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  "
      "Scripted reader\n";
  EXPECT_THAT(run.out, HasSubstr("\n- " + line));
  EXPECT_THAT(run.out, HasSubstr("\n+ " + line));
  EXPECT_LT(run.out.find("\n- "), run.out.find("\n+ "));
  // A provider that has reported an event is believed.
  EXPECT_THAT(run.err, Not(HasSubstr("listing again")));
  ExpectNoViolations();
}

TEST_F(ScriptedCardTest, WatchListsAgainWhateverAProviderWithoutEventsAnswers) {
  // CKR_FUNCTION_NOT_SUPPORTED, CKR_DEVICE_REMOVED, CKR_DEVICE_ERROR, CKR_NO_EVENT
  for (const char* const answer : {"0x54", "0x32", "0x30", "0x8"}) {
    Card(std::string("fail=C_WaitForSlotEvent/") + answer);
    const Finished run = RunCard({"watch", "--interval", "0.05", "--count", "2"});
    EXPECT_EQ(run.status, 0) << answer;
    EXPECT_THAT(run.out, HasSubstr("4fa107"));
    EXPECT_THAT(run.err, HasSubstr("cardcert: the provider has reported no events so far"));
    ExpectNoViolations();
  }
}

TEST_F(ScriptedCardTest, ASignalEndsWatchAndClosesTheProvider) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Process watch(WithCard({"watch", "--interval", "60"}), environment_);
    ASSERT_TRUE(watch.WaitForOutput("4fa107"));
    watch.Signal(signal);
    EXPECT_EQ(watch.Wait().status, 0);
    ExpectNoViolations();  // C_Finalize, once.
  }
}

TEST_F(ScriptedCardTest, WatchDoesNotTakeAFailureForARemoval) {
  // The first list takes two calls; then an event makes it list again, which fails once.
  Card("insert-at-poll=1 fail=C_GetSlotList/0x30/3");
  const Finished run = RunCard({"watch", "--interval", "0.05", "--count", "4"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("\nJürgen"));
  EXPECT_THAT(run.out, Not(HasSubstr("\n- ")));
  EXPECT_THAT(run.err, Not(HasSubstr("could not list")));
  EXPECT_THAT(Calls("C_GetSlotList(TOKEN_PRESENT"),
              testing::SizeIs(5));  // Again at the next look, and well.
  ExpectNoViolations();
}

TEST_F(ScriptedCardTest, WatchDoesNotTakeATokenThatComesInWhileItListsForARemoval) {
  // Without events, so that it lists again after three seconds. The third call asks whether there
  // are slots that are new; the second list has CKR_BUFFER_TOO_SMALL.
  Card("fail=C_GetSlotList/0x150/5");
  const Finished run = RunCard({"watch", "--interval", "3", "--count", "3"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, Not(HasSubstr("\n- ")));
  EXPECT_THAT(run.out, Not(HasSubstr("\n+ ")));
  EXPECT_THAT(Calls("C_GetSlotList(TOKEN_PRESENT"), testing::SizeIs(6));
  ExpectNoViolations();
}

TEST_F(ScriptedCardTest, WatchTakesTwoFailuresForARemovalAndSaysSoOnce) {
  // Four lists: of two calls, of one call each that fails.
  Card("insert-at-poll=1 fail-from=C_GetSlotList/0x30/3");
  const Finished run = RunCard({"watch", "--interval", "0.05", "--count", "4"});
  EXPECT_EQ(run.status, 0);
  const std::string line =
      "Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  "
      "Scripted reader\n";
  EXPECT_THAT(run.out, testing::EndsWith("\n- " + line));
  const std::string::size_type said = run.err.find("cardcert: the provider could not list its");
  EXPECT_NE(said, std::string::npos);
  EXPECT_EQ(said, run.err.rfind("cardcert: the provider could not list its"));
  EXPECT_THAT(Calls("C_GetSlotList(TOKEN_PRESENT"), testing::SizeIs(5));
  ExpectNoViolations();
}

TEST_F(ScriptedCardTest, AProviderThatCannotListItsSlotsHasNotAnEmptyList) {
  const std::string in = Write("in", "x");
  for (const Words& words :
       {Words{"list"}, Words{"list", "--json"}, Words{"present", "4fa107"},
        Words{"watch", "--count", "1"}, Words{"watch", "--json", "--count", "1"},
        Words{"sign", "4fa107", "--in", in, "--out", File("sig"), "--pin-file", PinFile()}}) {
    // Neither how many there are, nor which.
    for (const char* const nth : {"1", "2"}) {
      Card(std::string("fail-from=C_GetSlotList/0x30/") + nth);
      const Finished run = RunCard(words);
      EXPECT_EQ(run.status, 1) << words[0];
      EXPECT_EQ(run.out, "");
      EXPECT_THAT(run.err, HasSubstr("cardcert: the provider could not list its slots"));
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
      ExpectNoViolations();
    }
  }
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(ScriptedCardTest, WhatCannotBeReadIsNoReasonToAskForTheCard) {
  Card("fail-from=C_GetAttributeValue/0x11/1");  // CKR_ATTRIBUTE_SENSITIVE
  const Finished run = RunCard({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, testing::StartsWith("cardcert: note: "));
  EXPECT_THAT(run.err, testing::EndsWith("\ncardcert: no certificates that can be used\n"));
  ExpectNoViolations();
}

TEST_F(ScriptedCardTest, ATokenThatCannotBeWrittenToIsNotOneWithoutTheCertificate) {
  Card("fail-from=C_OpenSession/0xe2/2");  // CKR_TOKEN_WRITE_PROTECTED, but for the list
  const Finished run = RunCard({"present", "4fa107"});
  EXPECT_EQ(run.status, 4);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "cardcert: the certificate is listed, but its token cannot be opened for reading and "
            "writing:\n"
            "cardcert:   Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  "
            "Scripted reader\n");
  ExpectNoViolations();
}

TEST_F(ScriptedCardTest, ATokenThatCannotBeWrittenToSignsNothingAndSaysWhy) {
  Card("fail-from=C_OpenSession/0xe2/2");
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("cardcert: the certificate is listed, but its token cannot be"
                                 " opened for reading and writing:\n"));
  EXPECT_THAT(Calls("C_Login"), testing::IsEmpty());
  ExpectNoSignature();
}

TEST_F(ScriptedCardTest, WatchEndsWhenNobodyReadsOn) {
  // head -1 ends with the first line; the card never changes again.
  const Finished run =
      RunProgram({"timeout", "15", "bash", "-c", "\"$@\" | head -1; exit ${PIPESTATUS[0]}", "bash",
                  CARDCERT_PROGRAM, "watch", "--interval", "60", "--module", SCRIPTED_CARD_LIBRARY},
                 environment_);
  EXPECT_EQ(run.status, 1);
  ExpectNoViolations();
}

TEST_F(ScriptedCardTest, ASlotThatComesBetweenTheTwoCallsOfAListIsNoFailure) {
  Card("fail=C_GetSlotList/0x150");  // CKR_BUFFER_TOO_SMALL
  const Finished run = RunCard({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("4fa107"));
  ExpectNoViolations();
}

}  // namespace
