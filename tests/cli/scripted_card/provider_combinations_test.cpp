// Providers that misbehave in several ways at once, with every command.
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

// What must not disturb a command.
const char* const kHarmless[] = {"chdir",          "umask",         "locale",
                                 "fork",           "fork-exit",     "print",
                                 "print-buffered", "block-signals", "ignore-signals"};

struct CommandCase {
  const char* name;
  Words words;  // without the PINs and files of sign
  bool signs;
  const char* card;
  std::vector<std::string> functions;  // that the command calls, and that may misbehave
};

void PrintTo(const CommandCase& command, std::ostream* out) {
  *out << command.name;
}

const CommandCase kCommands[] = {
    {"List",
     {"list"},
     false,
     "",
     {"C_Initialize", "C_GetSlotList", "C_GetSlotInfo", "C_GetTokenInfo", "C_OpenSession",
      "C_FindObjects", "C_GetAttributeValue", "C_CloseSession", "C_Finalize"}},
    {"ListAsJson",
     {"list", "--json"},
     false,
     "",
     {"C_Initialize", "C_GetSlotList", "C_GetTokenInfo", "C_GetAttributeValue", "C_CloseSession",
      "C_Finalize"}},
    {"Present",
     {"present", "4fa107"},
     false,
     "",
     {"C_Initialize", "C_GetSlotList", "C_GetTokenInfo", "C_FindObjectsInit", "C_CloseSession",
      "C_Finalize"}},
    {"Watch",
     {"watch", "--json", "--count", "3", "--interval", "0.05"},
     false,
     "",
     {"C_Initialize", "C_GetSlotList", "C_GetTokenInfo", "C_WaitForSlotEvent", "C_CloseSession",
      "C_Finalize"}},
    {"Sign",
     {"sign", "4fa107"},
     true,
     "",
     {"C_Initialize", "C_GetSlotList", "C_GetTokenInfo", "C_Login", "C_SignInit", "C_Sign",
      "C_Logout", "C_CloseSession", "C_Finalize"}},
    {"Unlock",
     {"sign", "4fa107"},
     true,
     "left=0 ",
     {"C_Initialize", "C_GetTokenInfo", "C_Login", "C_InitPIN", "C_Sign", "C_Logout",
      "C_CloseSession", "C_Finalize"}},
};

class ProviderCombinationsTest : public ScriptedCardTest,
                                 public testing::WithParamInterface<CommandCase> {
 protected:
  void SetUp() override {
    ScriptedCardTest::SetUp();
    if (IsSkipped())
      return;
    std::filesystem::create_directory(File("here"));
    in_ = Write("in", "x");
    pins_ = {"--pin-file",     PinFile("1234"), "--so-pin-file",           PinFile("87654321"),
             "--new-pin-file", PinFile("5678"), "--allow-unreported-tries"};
  }

  // Runs the command in the folder "here" with the umask 027. What the provider prints is removed
  // from standard error, where it belongs.
  Finished RunHere(const std::string& misbehavior) {
    Card(GetParam().card + misbehavior);
    Finished run = InShell("umask 027; cd '" + File("here") + "' && exec \"$@\"", FullCommand());
    const std::string printed = "provider: hello\n";
    for (std::string::size_type at; (at = run.err.find(printed)) != std::string::npos;)
      run.err.erase(at, printed.size());
    return run;
  }

  Words FullCommand() const {
    Words words = GetParam().words;
    if (GetParam().signs)
      words = Concat(words, {"--in", in_, "--out", "sig"}, pins_);
    return CardCommand(words);
  }

  // Returns the words for all harmless kinds at the first call of every function.
  static std::string AllHarmless() {
    std::string words;
    for (const std::string& function : GetParam().functions) {
      for (const char* const kind : kHarmless)
        words += std::string("do=") + kind + "/" + function + " ";
    }
    return words;
  }

  // The folder has the output, or nothing.
  void ExpectFiles(bool output) const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(File("here")))
      names.push_back(entry.path().filename());
    EXPECT_EQ(names, output ? std::vector<std::string>{"sig"} : std::vector<std::string>{});
    if (!output)
      return;
    struct stat info = {};
    EXPECT_EQ(stat(File("here/sig").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
    ExpectSignature(File("here/sig"), "sign", in_);
  }

 private:
  std::string in_;
  Words pins_;
};

TEST_P(ProviderCombinationsTest, HarmlessOnesDoNotDisturbTheCommand) {
  const Finished usual = RunHere("");
  EXPECT_EQ(usual.status, 0) << usual.err;
  ExpectFiles(GetParam().signs);
  std::filesystem::remove(File("here/sig"));

  const Finished run = RunHere(AllHarmless());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, usual.out);
  EXPECT_EQ(run.err, usual.err);
  ExpectFiles(GetParam().signs);
  ExpectNoViolations();
}

TEST_P(ProviderCombinationsTest, AnExceptionEndsTheCommandWithStatus1) {
  const Finished usual = RunHere("");
  for (const std::string& function : GetParam().functions) {
    for (const char* const kind : {"throw", "throw-int", "throw-own"}) {
      SCOPED_TRACE(function + " " + kind);
      std::filesystem::remove(File("here/sig"));
      const Finished run = RunHere(AllHarmless() + "do-after=" + kind + "/" + function);
      EXPECT_EQ(run.status, 1);
      EXPECT_THAT(run.err, HasSubstr("cardcert: error: the provider threw an exception in "));
      EXPECT_TRUE(AllLinesAreMessages(run.err));
      EXPECT_THAT(usual.out, StartsWith(run.out));
      // What is thrown after the signature was written cannot take it back.
      ExpectFiles(GetParam().signs && function == "C_Finalize");
    }
  }
}

TEST_P(ProviderCombinationsTest, ExitEndsTheCommandWithStatus1) {
  const Finished usual = RunHere("");
  for (const std::string& function : GetParam().functions) {
    SCOPED_TRACE(function);
    std::filesystem::remove(File("here/sig"));
    const Finished run = RunHere(AllHarmless() + "do-after=exit/" + function);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("cardcert: error: the provider ended the program in "));
    EXPECT_TRUE(AllLinesAreMessages(run.err));
    EXPECT_THAT(usual.out, StartsWith(run.out));
    ExpectFiles(GetParam().signs && function == "C_Finalize");
  }
}

TEST_P(ProviderCombinationsTest, ClosedDescriptorsDoNotDamageFiles) {
  const Finished usual = RunHere("");
  for (const std::string& function : GetParam().functions) {
    SCOPED_TRACE(function);
    std::filesystem::remove(File("here/sig"));
    const Finished run = RunHere("do=chdir/" + function + " do=umask/" + function +
                                 " do=close-descriptors/" + function);
    if (function == "C_Finalize" || function == "C_WaitForSlotEvent") {  // Everything is written.
      EXPECT_EQ(run.status, 0);
      EXPECT_EQ(run.out, usual.out);
      EXPECT_EQ(run.err, usual.err);
      ExpectFiles(GetParam().signs);
    } else {
      EXPECT_EQ(run.status, 1);
      EXPECT_THAT(usual.out, StartsWith(run.out));
      EXPECT_THAT(run.err, HasSubstr("the provider closed a file that the program needs"));
      ExpectFiles(false);
    }
  }
}

// The command is ended from outside in the middle of a call.
TEST_P(ProviderCombinationsTest, LeavesNothingBehindWhenKilledInAHangingCall) {
  for (const std::string& function : GetParam().functions) {
    for (const int signal : {SIGTERM, SIGKILL}) {
      // watch finishes the call, to end the provider properly.
      if (signal == SIGTERM && GetParam().words[0] == "watch")
        continue;
      SCOPED_TRACE(function + " " + std::to_string(signal));
      const std::string harmless = signal == SIGKILL ? AllHarmless() : "";
      Card(GetParam().card + harmless + "do=print-error/" + function + " do=hang/" + function);
      std::filesystem::remove(File("here/sig"));
      Process process(
          Concat({"sh", "-c", "umask 027; cd '" + File("here") + "' && exec \"$@\"", "sh"},
                 FullCommand()),
          environment_);
      EXPECT_TRUE(process.WaitForOutput("provider: error"));
      process.Signal(signal);
      const Finished run = process.Wait();
      EXPECT_EQ(run.signal, signal);
      ExpectFiles(GetParam().signs && function == "C_Finalize");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllCommands, ProviderCombinationsTest, testing::ValuesIn(kCommands),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
