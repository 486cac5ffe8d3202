// cardcert watch with a card that is removed and inserted, and with providers that fail.
#include <csignal>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kLine =
    "Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  Scripted reader\n";

class WatchEventsTest : public ScriptedCardTest {
 protected:
  // Lets watch check `count` times in quick succession.
  Finished Watch(int count) const {
    const Finished run = RunCard({"watch", "--interval", "0.05", "--count", std::to_string(count)});
    EXPECT_EQ(run.status, 0);
    ExpectNoViolations();
    return run;
  }
};

TEST_F(WatchEventsTest, ShowsRemovalAndInsertion) {
  Card("remove-at-poll=2 insert-at-poll=9");
  const Finished run = Watch(8);
  EXPECT_THAT(run.out, EndsWith("  Scripted reader\n- " + kLine + "+ " + kLine));
  // Once the provider has reported an event, watch relies on events.
  EXPECT_EQ(run.err, "");
}

TEST_F(WatchEventsTest, ShowsACardThatMovesToAnotherReader) {
  Card("move-at-poll=2");
  const Finished run = Watch(4);
  EXPECT_THAT(run.out, EndsWith("  Scripted reader\n- " + kLine +
                                "+ Jürgen 山田  4fa107  2048 bits  digitalSignature, "
                                "nonRepudiation  Second reader\n"));
  EXPECT_EQ(run.err, "");
}

TEST_F(WatchEventsTest, CountsCopiesOfACertificate) {
  Card("copy-at-poll=2");
  const Finished run = Watch(4);
  EXPECT_THAT(run.out, EndsWith("  Scripted reader\n+ " + kLine));
  EXPECT_EQ(run.err, "");
}

TEST_F(WatchEventsTest, SaysThatThereAreNoCertificatesYet) {
  Card("absent insert-at-poll=2");
  const Finished run = Watch(4);
  EXPECT_EQ(run.out, "+ " + kLine);
  EXPECT_EQ(run.err, "cardcert: no certificates yet; watching for changes\n");
}

TEST_F(WatchEventsTest, ShowsANoteOnce) {
  Card("first=ec insert-at-poll=2");
  const Finished run = Watch(4);
  EXPECT_EQ(run.err,
            "cardcert: warning: Unable to read public key from certificate for token \"Card (PIN)\""
            " (left out: only certificates with an RSA key can be used)\n");
  EXPECT_THAT(Calls("C_GetSlotList(TOKEN_PRESENT"), testing::SizeIs(4));  // It listed twice.
}

TEST_F(WatchEventsTest, ContinuesIfHangupIsIgnored) {
  // As with nohup. The card is removed about two seconds after the start.
  Card("remove-at-poll=40");
  Process watch(Concat({"sh", "-c", "trap '' HUP; exec \"$@\"", "sh"},
                       CardCommand({"watch", "--interval", "0.05"})),
                environment_);
  ASSERT_TRUE(watch.WaitForOutput("4fa107"));
  watch.Signal(SIGHUP);
  EXPECT_TRUE(watch.WaitForOutput("\n- " + kLine));
  watch.Signal(SIGTERM);
  EXPECT_EQ(watch.Wait().status, 0);
  ExpectNoViolations();
}

TEST_F(WatchEventsTest, ListsAgainIfTheProviderReportsNoEvents) {
  // CKR_FUNCTION_NOT_SUPPORTED, CKR_DEVICE_REMOVED, CKR_DEVICE_ERROR, CKR_NO_EVENT
  for (const char* const answer : {"0x54", "0x32", "0x30", "0x8"}) {
    Card(std::string("fail=C_WaitForSlotEvent/") + answer);
    const Finished run = Watch(2);
    EXPECT_THAT(run.out, HasSubstr("4fa107"));
    EXPECT_EQ(
        run.err,
        Progress("the provider has reported no events so far; listing again every 3 seconds"));
  }
}

TEST_F(WatchEventsTest, SignalEndsWatchAndFinalizesTheProvider) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Process watch(CardCommand({"watch", "--interval", "60"}), environment_);
    ASSERT_TRUE(watch.WaitForOutput("4fa107"));
    watch.Signal(signal);
    EXPECT_EQ(watch.Wait().status, 0);
    ExpectNoViolations();
  }
}

TEST_F(WatchEventsTest, OneFailureIsNotARemoval) {
  // The first list makes two calls. Then an event makes watch list again, and the third call fails.
  Card("insert-at-poll=1 fail=C_GetSlotList/0x30/3");
  const Finished run = Watch(4);
  EXPECT_THAT(run.out, HasSubstr("\nJürgen"));
  EXPECT_THAT(run.out, Not(HasSubstr("\n- ")));
  EXPECT_EQ(run.err, "");
  // Watch listed again at the next check, with success.
  EXPECT_THAT(Calls("C_GetSlotList(TOKEN_PRESENT"), testing::SizeIs(5));
}

TEST_F(WatchEventsTest, TokenInsertedWhileListingIsNotARemoval) {
  // Without events watch lists again after three seconds. The third call of C_GetSlotList looks for
  // new slots; the second list gets CKR_BUFFER_TOO_SMALL.
  Card("fail=C_GetSlotList/0x150/5");
  const Finished run = RunCard({"watch", "--interval", "3", "--count", "3"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, Not(HasSubstr("\n- ")));
  EXPECT_THAT(run.out, Not(HasSubstr("\n+ ")));
  EXPECT_THAT(Calls("C_GetSlotList(TOKEN_PRESENT"), testing::SizeIs(6));
  ExpectNoViolations();
}

TEST_F(WatchEventsTest, TwoFailuresAreARemovalReportedOnce) {
  // Four lists: the first makes two calls, each of the others one call that fails.
  Card("insert-at-poll=1 fail-from=C_GetSlotList/0x30/3");
  const Finished run = Watch(4);
  EXPECT_THAT(run.out, EndsWith("\n- " + kLine));
  EXPECT_EQ(
      run.err,
      Error("the provider cannot list its slots") +
          Hint("check that what it needs is running: its daemon, or the card reader service"));
  EXPECT_THAT(Calls("C_GetSlotList(TOKEN_PRESENT"), testing::SizeIs(5));
}

TEST_F(WatchEventsTest, EndsIfStandardOutputIsClosed) {
  // head -1 ends after the first line. The card does not change, so nothing else is written.
  const Finished run = InBash("timeout 15 \"$@\" | head -1; exit ${PIPESTATUS[0]}",
                              CardCommand({"watch", "--interval", "60"}));
  EXPECT_EQ(run.status, 1);
  ExpectNoViolations();
}

}  // namespace
