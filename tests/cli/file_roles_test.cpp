// Files that a command line uses for two purposes.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;

constexpr char kOtherFile[] = "use another file for one of them";

class FileRolesTest : public CardcertTest {
 protected:
  void SetUp() override {
    CardcertTest::SetUp();
    if (IsSkipped())
      return;
    Write("in", "x");
    Write("pin", "1234\n");
    Write("so-pin", "87654321\n");
    Write("new-pin", "4321\n");
    std::filesystem::copy(SOFTHSM2_LIBRARY, File("module.so"));
    module_size_ = std::filesystem::file_size(File("module.so"));
  }

  // A value of `options` replaces the file that the option has otherwise.
  Words SignCommand(const std::map<std::string, std::string>& options) const {
    std::map<std::string, std::string> all = {{"--in", File("in")},
                                              {"--pin-file", File("pin")},
                                              {"--so-pin-file", File("so-pin")},
                                              {"--new-pin-file", File("new-pin")},
                                              {"--out", File("sig")},
                                              {"--module", File("module.so")}};
    for (const auto& [option, value] : options)
      all[option] = value;
    Words command = {CARDCERT_PROGRAM, "sign", "1024"};
    for (const auto& [option, value] : all)
      command.insert(command.end(), {option, value});
    return command;
  }

  void ExpectUntouched() const {
    EXPECT_EQ(ReadFile(File("in")), "x");
    EXPECT_EQ(ReadFile(File("pin")), "1234\n");
    EXPECT_EQ(ReadFile(File("so-pin")), "87654321\n");
    EXPECT_EQ(ReadFile(File("new-pin")), "4321\n");
    EXPECT_EQ(std::filesystem::file_size(File("module.so")), module_size_);
    EXPECT_FALSE(Exists(File("sig")));
    EXPECT_FALSE(Exists(File("new")));
  }

  std::uintmax_t module_size_ = 0;
};

TEST_F(FileRolesTest, SignsWithDifferentFiles) {
  const Finished run = RunProgram(SignCommand({{"--log-file", File("log")}}), environment_);
  EXPECT_EQ(run.status, 0) << run.err;
  ExpectSignature(File("sig"), "rsa1024", File("in"));
}

struct Shared {
  const char* option;
  const char* file;
  const char* error;
};

TEST_F(FileRolesTest, RefusesOneFileForTwoPurposes) {
  const Shared all[] = {
      {"--log-file", "in",
       "--in and --log-file are the same file: the log would be written into the signed data"},
      {"--log-file", "pin",
       "--pin-file and --log-file are the same file: the log would be written into the PIN file"},
      {"--log-file", "so-pin",
       "--so-pin-file and --log-file are the same file: the log would be written into the PIN"
       " file"},
      {"--log-file", "new-pin",
       "--new-pin-file and --log-file are the same file: the log would be written into the PIN"
       " file"},
      {"--log-file", "module.so",
       "--module and --log-file are the same file: the log would be written into the library"},
      {"--log-file", "sig",
       "--out and --log-file are the same file: the signature would replace the log"},
      {"--in", "pin",
       "--in and --pin-file are the same file: the PIN would be signed, and the signature would"
       " give it away"},
      {"--in", "so-pin",
       "--in and --so-pin-file are the same file: the PIN would be signed, and the signature would"
       " give it away"},
      {"--in", "new-pin",
       "--in and --new-pin-file are the same file: the PIN would be signed, and the signature"
       " would give it away"},
      {"--out", "in",
       "--in and --out are the same file: the signature would replace the signed data"},
      {"--out", "pin",
       "--pin-file and --out are the same file: the signature would replace the"
       " PIN"},
      {"--out", "so-pin",
       "--so-pin-file and --out are the same file: the signature would replace the PIN"},
      {"--out", "new-pin",
       "--new-pin-file and --out are the same file: the signature would replace the PIN"},
      {"--out", "module.so",
       "--module and --out are the same file: the signature would replace the library"},
      {"--pin-file", "module.so",
       "--module and --pin-file are the same file: the PIN would be loaded as a library"},
  };
  for (const Shared& shared : all) {
    SCOPED_TRACE(std::string(shared.option) + " " + shared.file);
    const Finished run =
        RunProgram(SignCommand({{shared.option, File(shared.file)}}), environment_);
    EXPECT_EQ(Refusal(run), Error(shared.error) + Hint(kOtherFile));
    ExpectUntouched();
  }
}

TEST_F(FileRolesTest, SeesThroughLinksAndMissingFiles) {
  ASSERT_EQ(link(File("in").c_str(), File("hard").c_str()), 0);
  ASSERT_EQ(symlink("in", File("soft").c_str()), 0);
  for (const char* const log : {"hard", "soft"}) {
    EXPECT_THAT(Refusal(RunProgram(SignCommand({{"--log-file", File(log)}}), environment_)),
                HasSubstr("--in and --log-file are the same file"));
    ExpectUntouched();
  }
  EXPECT_THAT(
      Refusal(RunProgram(SignCommand({{"--log-file", File("./new")}, {"--pin-file", File("new")}}),
                         environment_)),
      HasSubstr("--pin-file and --log-file are the same file"));
  ExpectUntouched();
}

TEST_F(FileRolesTest, AllowsWhatHarmsNothing) {
  for (const auto& options : {std::map<std::string, std::string>{{"--in", File("module.so")}},
                              {{"--so-pin-file", File("pin")}},
                              {{"--new-pin-file", File("pin")}},
                              {{"--log-file", "/dev/null"}, {"--out", "/dev/null"}}}) {
    const Finished run = RunProgram(SignCommand(options), environment_);
    EXPECT_EQ(run.status, 0) << run.err;
  }
}

TEST_F(FileRolesTest, RefusesAPipeFromWhichTwoWouldBeRead) {
  struct Case {
    std::map<std::string, std::string> options;
    std::string error;
  };
  const std::string pin_hint = Hint("write the PIN or the data to a file of its own");
  for (const Case& test :
       {Case{{{"--in", "/dev/stdin"}, {"--pin-file", "/dev/stdin"}},
             Error("--in and --pin-file are the same pipe: only one of them can be read from it") +
                 pin_hint},
        Case{{{"--in", "-"}, {"--pin-file", "/dev/fd/0"}},
             Error("standard input and --pin-file are the same pipe: only one of them can be read"
                   " from it") +
                 pin_hint},
        Case{{{"--pin-file", "/dev/stdin"}, {"--new-pin-file", "/proc/self/fd/0"}},
             Error("--pin-file and --new-pin-file are the same pipe: only one PIN can be read from"
                   " it") +
                 Hint("write each PIN to a file of its own")}}) {
    const Finished run = InShell("echo 1234 | \"$@\"", SignCommand(test.options));
    EXPECT_EQ(Refusal(run), test.error);
    ExpectUntouched();
  }
}

TEST_F(FileRolesTest, RefusesToWriteIntoAnInput) {
  for (const auto& [file, option] : {std::pair("in", "--in"), std::pair("pin", "--pin-file"),
                                     std::pair("module.so", "--module")}) {
    const Finished run =
        InShell("exec \"$@\" >> '" + File(file) + "'", SignCommand({{"--out", "-"}}));
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr(std::string("standard output are the same file: ")));
    EXPECT_THAT(run.err, HasSubstr(option));
    ExpectUntouched();
  }
}

TEST_F(FileRolesTest, OtherCommandsCompareModuleLogAndStandardOutput) {
  for (const Words& command : {Words{"list"}, {"present", "1024"}, {"watch", "--count", "1"}}) {
    SCOPED_TRACE(command.front());
    const Words words =
        Concat(Concat({CARDCERT_PROGRAM}, command), {"--module", File("module.so"), "--log-file"});
    EXPECT_EQ(Refusal(RunProgram(Concat(words, {File("module.so")}), environment_)),
              Error("--module and --log-file are the same file: the log would be written into the"
                    " library") +
                  Hint(kOtherFile));
    const Finished mixed =
        InShell("exec \"$@\" > '" + File("out") + "'", Concat(words, {File("out")}));
    EXPECT_EQ(mixed.status, 2);
    EXPECT_THAT(mixed.err, HasSubstr("standard output and --log-file are the same file: the log"
                                     " would be mixed with the data"));
    EXPECT_EQ(ReadFile(File("out")), "");
    const Finished appended =
        InShell("exec \"$@\" >> '" + File("module.so") + "'", Concat(words, {File("log")}));
    EXPECT_EQ(appended.status, 2);
    EXPECT_FALSE(Exists(File("log")));
    ExpectUntouched();
  }
}

}  // namespace
