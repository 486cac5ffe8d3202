// The state of the terminal while a PIN is asked for and checked, and after every way out.
#include <csignal>
#include <string>
#include <utility>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class TerminalGuardTest : public ScriptedCardTest {
 protected:
  void SetUp() override {
    ScriptedCardTest::SetUp();
    // The signals are not for the sanitizers.
    environment_["ASAN_OPTIONS"] =
        "handle_segv=0:handle_sigbus=0:handle_abort=0:handle_sigfpe=0:handle_sigill=0";
  }

  // Waits until the provider hangs, as "do=hang" says.
  void WaitForHang() const {
    ASSERT_TRUE(WaitUntil([this] { return Exists(File("trace.hangs")); }));
  }
};

// Every signal that ends a program but SIGKILL and SIGPIPE, which the program ignores.
const int kEndingSignals[] = {SIGHUP,  SIGQUIT, SIGTERM,   SIGALRM, SIGUSR1, SIGUSR2,
                              SIGPROF, SIGXCPU, SIGVTALRM, SIGXFSZ, SIGPOLL, SIGPWR,
                              SIGSYS,  SIGTRAP, SIGSTKFLT, SIGABRT, SIGSEGV, SIGBUS,
                              SIGFPE,  SIGILL,  SIGRTMIN,  SIGRTMAX};

TEST_F(TerminalGuardTest, EverySignalAtAPromptRestoresTheTerminal) {
  for (const int signal : kEndingSignals) {
    SCOPED_TRACE(strsignal(signal));
    PseudoTerminal terminal(SignCommand(), environment_);
    terminal.Expect("PIN: ");
    EXPECT_FALSE(terminal.Echoes());
    terminal.Type("1234");
    kill(terminal.program(), signal);
    terminal.ExpectExit(-signal);
    EXPECT_EQ(terminal.Unread(), "");
  }
}

TEST_F(TerminalGuardTest, EverySignalDuringALoginRestoresTheTerminal) {
  Card("do=stop/C_Login");
  for (const int signal : kEndingSignals) {
    SCOPED_TRACE(strsignal(signal));
    PseudoTerminal terminal(SignCommand(), environment_);
    terminal.Enter("PIN: ", "1234");
    terminal.WaitForStop();
    EXPECT_FALSE(terminal.Echoes());
    terminal.Type("echo 9876\n98");
    kill(terminal.program(), signal);
    terminal.Continue();
    terminal.ExpectExit(-signal);
    EXPECT_EQ(terminal.Unread(), "");
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("98")));
  }
}

TEST_F(TerminalGuardTest, ASignalAtAnOpenQuestionDiscardsWhatWasTyped) {
  Card("left=0");
  for (const int signal : {SIGTERM, SIGALRM, SIGINT}) {
    PseudoTerminal terminal(SignCommand(), environment_);
    terminal.Expect("[y/N] ");
    terminal.Type("ye");
    kill(terminal.program(), signal);
    terminal.ExpectExit(signal == SIGINT ? 6 : -signal);
    EXPECT_EQ(terminal.Unread(), "");
  }
}

TEST_F(TerminalGuardTest, HidesAndDiscardsWhatIsTypedDuringALogin) {
  Card("do=stop/C_Login");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "1234");
  terminal.WaitForStop();
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("echo 9876\n98");
  terminal.Continue();
  terminal.ExpectExit(0);
  EXPECT_EQ(terminal.Unread(), "");
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("98")));
  ExpectSigned();
}

TEST_F(TerminalGuardTest, DiscardsWhatIsTypedAfterThePin) {
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "1234\necho 9876");  // The second line is not read.
  terminal.ExpectExit(0);
  EXPECT_EQ(terminal.Unread(), "");
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("98")));
}

TEST_F(TerminalGuardTest, WhatIsTypedDuringALoginIsNotTheNextPin) {
  Card("do=stop/C_Login");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "9999");
  terminal.WaitForStop();
  terminal.Type("8888\n");
  terminal.Continue();
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  EXPECT_EQ(Calls("C_Login").size(), 2U);
  ExpectSigned();
}

TEST_F(TerminalGuardTest, ControlZDuringALoginRestoresTheTerminal) {
  Card("do=hang/C_Login");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "1234");
  WaitForHang();
  EXPECT_FALSE(terminal.Echoes());
  for (int i = 0; i < 2; ++i) {
    terminal.Type("98\x1a");
    terminal.WaitForStop();
    EXPECT_TRUE(terminal.Echoes());
    terminal.Continue();
    EXPECT_TRUE(WaitUntil([&] { return !terminal.Echoes(); }));
  }
  terminal.Type("\x03");
  terminal.ExpectExit(-SIGINT);
  EXPECT_EQ(terminal.Unread(), "");
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("98")));
}

TEST_F(TerminalGuardTest, LeavesTheTerminalAloneInTheBackground) {
  Card("do=hang/C_Login");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "1234");
  WaitForHang();
  terminal.Type("\x1a");
  terminal.WaitForStop();
  terminal.ContinueInBackground();
  terminal.Type("ls\n");
  EXPECT_FALSE(WaitUntil([&] { return !terminal.Echoes(); }, std::chrono::milliseconds(300)));
  kill(terminal.program(), SIGTERM);
  terminal.ExpectExit(-SIGTERM);
  EXPECT_EQ(terminal.Unread(), "ls\n");
}

TEST_F(TerminalGuardTest, ACrashOrExitOfTheProviderRestoresTheTerminal) {
  const std::pair<const char*, int> kinds[] = {
      {"crash", -SIGSEGV}, {"overflow-stack", -SIGSEGV}, {"abort", -SIGABRT}, {"exit", 1}};
  for (const auto& [kind, status] : kinds) {
    for (const char* const function : {"C_Login", "C_SignInit", "C_Sign", "C_Logout"}) {
      SCOPED_TRACE(std::string(kind) + " " + function);
      Card(std::string("do=") + kind + "/" + function);
      PseudoTerminal terminal(SignCommand(), environment_);
      terminal.Enter("PIN: ", "1234\necho 9876\n98");
      terminal.ExpectExit(status);
      EXPECT_EQ(terminal.Unread(), "");
    }
  }
}

TEST_F(TerminalGuardTest, AProviderThatClosesDescriptorsDoesNotKeepTheTerminal) {
  Card("do=close-descriptors/C_Login");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "9999");
  terminal.Enter("PIN: ", "1234\n98");
  terminal.ExpectExit(1);  // The output file was closed, too.
  EXPECT_EQ(terminal.Unread(), "");
}

TEST_F(TerminalGuardTest, ASignalThatWasIgnoredAtTheStartStaysIgnored) {
  PseudoTerminal terminal(
      Concat({"sh", "-c", "trap '' TERM HUP ALRM USR1 RTMIN; exec \"$@\"", "sh"}, SignCommand()),
      environment_);
  terminal.Expect("PIN: ");
  terminal.Type("12");
  for (const int signal : {SIGTERM, SIGHUP, SIGALRM, SIGUSR1, SIGRTMIN})
    kill(terminal.program(), signal);
  terminal.Type("34\n");
  terminal.ExpectExit(0);
  ExpectSigned();
}

class SignalTamperingTest : public TerminalGuardTest,
                            public testing::WithParamInterface<const char*> {};

TEST_P(SignalTamperingTest, ControlCWorksAtPrompts) {
  for (const char* const function : {"C_Initialize", "C_GetTokenInfo", "C_OpenSession/2"}) {
    SCOPED_TRACE(function);
    Card(std::string("do=") + GetParam() + "/" + function);
    for (const bool is_interrupt : {true, false}) {
      PseudoTerminal terminal(SignCommand(), environment_);
      terminal.Expect("PIN: ");
      terminal.Type("12");
      if (is_interrupt)
        terminal.Type("\x03");
      else
        kill(terminal.program(), SIGTERM);
      terminal.ExpectExit(is_interrupt ? 6 : -SIGTERM);
      EXPECT_EQ(terminal.Unread(), "");
    }
  }
}

TEST_P(SignalTamperingTest, ControlCWorksAtASecondPrompt) {
  Card(std::string("do=") + GetParam() + "/C_Login");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "9999");
  terminal.Expect("PIN: ");
  terminal.Type("\x03");
  terminal.ExpectExit(6);
}

// A provider that closes descriptors ends watch in any case, because standard output is gone.
TEST_F(TerminalGuardTest, ControlCEndsWatchIfTheProviderTampersWithSignals) {
  for (const char* const kind : {"ignore-signals", "block-signals"}) {
    for (const char* const function : {"C_Initialize", "C_WaitForSlotEvent"}) {
      SCOPED_TRACE(std::string(kind) + " " + function);
      Card(std::string("do=") + kind + "/" + function);
      PseudoTerminal terminal(CardCommand({"watch", "--interval", "0.3"}), environment_);
      terminal.Expect("listing again every");
      terminal.Type("\x03");
      terminal.ExpectExit(0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Provider, SignalTamperingTest,
                         testing::Values("ignore-signals", "block-signals", "close-descriptors"),
                         [](const auto& test) {
                           std::string name = test.param;
                           name.erase(name.find('-'), 1);
                           return name;
                         });

}  // namespace
