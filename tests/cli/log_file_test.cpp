// Names of --log-file that lead to standard output, to a terminal, or to files of other users.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "cli/cardcert_fixture.h"
#include "cli/pseudo_terminal.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class LogFileTest : public CardcertTest {};

TEST_F(LogFileTest, RefusesStandardOutputWhereDataGoThere) {
  const std::string in = Write("in", "x");
  for (const char* const log :
       {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1", "/proc/thread-self/fd/1"}) {
    for (const Words& command :
         {Words{"list"},
          {"present", "1024"},
          {"watch", "--count", "1"},
          {"sign", "1024", "--in", in, "--pin-file", PinFile()},
          {"sign", "1024", "--in", in, "--pin-file", PinFile(), "--out", "/dev/stdout"}}) {
      const std::string message = Refusal(Cardcert(Concat(command, {"--log-file", log})));
      EXPECT_THAT(message, HasSubstr("standard output and --log-file are the same file: the log"
                                     " would be mixed with the data\n"))
          << log << " " << command.front();
      EXPECT_THAT(message, HasSubstr(Hint("use another file for the log, or --log-level N, which"
                                          " logs to standard error")));
      const Finished discarded =
          InShell("exec \"$@\" > /dev/null", Command(Concat(command, {"--log-file", log})));
      EXPECT_EQ(discarded.status, 2);
    }
  }
}

TEST_F(LogFileTest, RefusesOtherNamesOfThePipeOfStandardOutput) {
  const Finished run = InShell("\"$@\" 3>&1 | cat", Command({"list", "--log-file", "/dev/fd/3"}));
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, HasSubstr("standard output and --log-file are the same pipe"));
}

TEST_F(LogFileTest, MayBeStandardOutputWhereTheSignatureGoesToAFile) {
  const std::string in = Write("in", "x");
  const Finished run = Cardcert({"sign", "1024", "--in", in, "--pin-file", PinFile(), "--out",
                                 File("sig"), "--log-file", "/dev/stdout"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr(" 3 Loaded PKCS#11 module"));
  ExpectSignature(File("sig"), "rsa1024", in);
}

TEST_F(LogFileTest, MayBeStandardError) {
  const Finished run = Cardcert({"list", "--log-file", "/dev/stderr"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr(" 3 Loaded PKCS#11 module"));
  EXPECT_THAT(run.out, Not(HasSubstr("Loaded")));
}

// A name in the certificates contains U+202E, which reverses the order of text.
TEST_F(LogFileTest, IsEscapedOnATerminal) {
  for (const char* const log : {"/dev/tty", "/dev/stderr", "/dev/fd/2", "$(tty)"}) {
    const std::string script =
        std::string("exec \"$@\" --log-file ") + log + " > '" + File("out") + "'";
    PseudoTerminal terminal(Concat({"sh", "-c", script, "sh"}, Command({"list"})), environment_);
    terminal.ExpectExit(0);
    EXPECT_THAT(terminal.screen(), HasSubstr(" 3 Loaded PKCS#11 module")) << log;
    EXPECT_THAT(terminal.screen(), HasSubstr("\\u{202e}txt.exe")) << log;
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("\u202e"))) << log;
  }
}

TEST_F(LogFileTest, RootDoesNotLogThroughFilesOfOtherUsers) {
  if (geteuid() != 0)
    GTEST_SKIP() << "only root can be several users";
  std::filesystem::create_directory(File("shared"));
  ASSERT_EQ(chmod(File("shared").c_str(), 01777), 0);
  const std::string victim = Write("victim", "old");
  const std::string link = File("shared/link");
  ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
  ASSERT_EQ(lchown(link.c_str(), 4321, 4321), 0);
  const std::string planted = Write("shared/planted", "");
  ASSERT_EQ(chown(planted.c_str(), 4321, 4321), 0);

  const std::string in = Write("in", "x");
  for (const Words& command :
       {Words{"list"},
        {"sign", "1024", "--in", in, "--out", File("sig"), "--pin-file", PinFile()}}) {
    EXPECT_THAT(Refusal(Cardcert(Concat(command, {"--log-file", link}))),
                HasSubstr("cannot write the log file '" + link +
                          "': the symbolic link 'link' belongs to user 4321"));
    EXPECT_THAT(Refusal(Cardcert(Concat(command, {"--log-file", planted}))),
                HasSubstr("the file belongs to user 4321, in a folder where others can create"));
  }
  EXPECT_EQ(ReadFile(victim), "old");
  EXPECT_EQ(ReadFile(planted), "");
  EXPECT_FALSE(Exists(File("sig")));
}

}  // namespace
