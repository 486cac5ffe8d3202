// The PIN goes to the token that was listed and that the program has named, or to none.
#include "cli/scripted_card/scripted_card_fixture.h"

#include "cli/pseudo_terminal.h"

namespace {

using testing::IsEmpty;
using testing::SizeIs;

class ListedTokenTest : public ScriptedCardTest {
 protected:
  Finished SignWithPinFile() const { return RunSign({"--pin-file", PinFile()}); }
};

std::string ExchangedMessages() {
  return Error(
             "the token is not the one that was listed: its label was 'Card (PIN)' and is 'Other"
             " card'; nothing was signed") +
         Hint("no PIN was sent to it; insert the right token and run the command again");
}

// The signature's search is the second one.
TEST_F(ListedTokenTest, SendsNoPinToAnExchangedToken) {
  Card("exchange=C_OpenSession/2");
  const Finished run = SignWithPinFile();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, ExchangedMessages());
  EXPECT_THAT(Calls("C_Login"), IsEmpty());
  ExpectNotSigned();
}

TEST_F(ListedTokenTest, AsksForNoPinOfAnExchangedToken) {
  Card("exchange=C_OpenSession/2");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.ExpectExit(1);
  EXPECT_EQ(terminal.screen(), ExchangedMessages());
  EXPECT_THAT(Calls("C_Login"), IsEmpty());
  ExpectNotSigned();
}

// The listing asks for the token's information once and the signature twice before the first PIN.
TEST_F(ListedTokenTest, AsksForNoSecondPinIfTheTokenWasExchanged) {
  Card("exchange=C_GetTokenInfo/4");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "9999");
  terminal.ExpectExit(1);
  EXPECT_THAT(terminal.screen(), testing::EndsWith(ExchangedMessages()));
  EXPECT_THAT(Calls("C_Login"), SizeIs(1));
  EXPECT_FALSE(Exists(File("sig")));
}

}  // namespace
