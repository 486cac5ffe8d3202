// cardcert watch with a card that is removed and inserted, and with providers that fail.
#include <csignal>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class WatchEventsTest : public ScriptedCardTest {};

TEST_F(WatchEventsTest, ShowsRemovalAndInsertion) {
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

TEST_F(WatchEventsTest, ListsAgainIfTheProviderReportsNoEvents) {
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

TEST_F(WatchEventsTest, SignalEndsWatchAndFinalizesTheProvider) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Process watch(WithCard({"watch", "--interval", "60"}), environment_);
    ASSERT_TRUE(watch.WaitForOutput("4fa107"));
    watch.Signal(signal);
    EXPECT_EQ(watch.Wait().status, 0);
    ExpectNoViolations();  // C_Finalize, once.
  }
}

TEST_F(WatchEventsTest, OneFailureIsNotARemoval) {
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

TEST_F(WatchEventsTest, TokenInsertedWhileListingIsNotARemoval) {
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

TEST_F(WatchEventsTest, TwoFailuresAreARemovalReportedOnce) {
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

TEST_F(WatchEventsTest, EndsIfStandardOutputIsClosed) {
  // head -1 ends with the first line; the card never changes again.
  const Finished run =
      RunProgram({"timeout", "15", "bash", "-c", "\"$@\" | head -1; exit ${PIPESTATUS[0]}", "bash",
                  CARDCERT_PROGRAM, "watch", "--interval", "60", "--module", SCRIPTED_CARD_LIBRARY},
                 environment_);
  EXPECT_EQ(run.status, 1);
  ExpectNoViolations();
}

}  // namespace
