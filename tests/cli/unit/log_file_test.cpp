#include "cli/files/log_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "cli/component_log.h"
#include "cli/output/write_all.h"
#include "support/files.h"

namespace cardcert::cli {
namespace {

using support::ReadFile;
using testing::HasSubstr;

constexpr uid_t kStranger = 4321;

class LogFileTest : public testing::Test {
 protected:
  std::string File(const std::string& name) const { return folder_.File(name); }

  static bool Append(const std::string& path, const std::string& text) {
    FileProblem problem;
    const std::optional<LogFile> log = LogFile::Prepare(path, &problem);
    const HeldFile file = log ? log->Open(&problem) : HeldFile();
    return file && WriteAll(file.get(), text);
  }

  // Returns why the file cannot be used.
  static std::string Refusal(const std::string& path) {
    FileProblem problem;
    EXPECT_FALSE(LogFile::Prepare(path, &problem));
    return problem.reason;
  }

  support::TempFolder folder_;
};

TEST_F(LogFileTest, CreatesItForItsOwnerOnlyAndAppends) {
  EXPECT_TRUE(Append(File("log"), "one\n"));
  EXPECT_TRUE(Append(File("log"), "two\n"));
  EXPECT_EQ(ReadFile(File("log")), "one\ntwo\n");
  struct stat info = {};
  ASSERT_EQ(stat(File("log").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
}

TEST_F(LogFileTest, PreparingChangesNothing) {
  FileProblem problem;
  EXPECT_TRUE(LogFile::Prepare(File("log"), &problem));
  EXPECT_FALSE(support::Exists(File("log")));
}

TEST_F(LogFileTest, FollowsOwnLinks) {
  ASSERT_EQ(symlink("log", File("link").c_str()), 0);
  EXPECT_TRUE(Append(File("link"), "x"));
  EXPECT_EQ(ReadFile(File("log")), "x");
}

TEST_F(LogFileTest, RefusesWhatCannotBeALog) {
  EXPECT_EQ(Refusal(folder_.path()), "Is a directory");
  EXPECT_EQ(Refusal(File("none/log")), "No such file or directory");
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  File("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_THAT(Refusal(File("socket")), HasSubstr("it is a socket"));
  close(listener);
}

TEST_F(LogFileTest, ContinuesAtTheDescriptorsPosition) {
  const int descriptor = open(File("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_TRUE(WriteAll(descriptor, "message\n"));
  EXPECT_TRUE(Append("/dev/fd/" + std::to_string(descriptor), "log\n"));
  ASSERT_TRUE(WriteAll(descriptor, "message\n"));
  close(descriptor);
  EXPECT_EQ(ReadFile(File("out")), "message\nlog\nmessage\n");
}

TEST_F(LogFileTest, KnowsTheNamesOfStandardOutput) {
  FileProblem problem;
  for (const char* const path :
       {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1", "/proc/thread-self/fd/1"})
    EXPECT_TRUE(LogFile::Prepare(path, &problem)->IsStandardOutput()) << path;
  EXPECT_FALSE(LogFile::Prepare("/dev/stderr", &problem)->IsStandardOutput());
  EXPECT_FALSE(LogFile::Prepare("/dev/null", &problem)->IsStandardOutput());
}

TEST_F(LogFileTest, RefusesAFileThatTookItsPlace) {
  folder_.Write("log", "");
  folder_.Write("other", "other");
  FileProblem problem;
  const std::optional<LogFile> log = LogFile::Prepare(File("log"), &problem);
  ASSERT_TRUE(log);
  std::filesystem::rename(File("other"), File("log"));
  EXPECT_FALSE(log->Open(&problem));
  EXPECT_THAT(problem.reason, HasSubstr("another file has taken its place"));
}

TEST_F(LogFileTest, AnotherRunMayCreateItFirst) {
  FileProblem problem;
  const std::optional<LogFile> log = LogFile::Prepare(File("log"), &problem);
  ASSERT_TRUE(log);
  ASSERT_TRUE(Append(File("log"), "first\n"));
  const HeldFile file = log->Open(&problem);
  EXPECT_TRUE(WriteAll(file.get(), "second\n"));
  EXPECT_EQ(ReadFile(File("log")), "first\nsecond\n");
}

class SharedLogFileTest : public LogFileTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0)
      GTEST_SKIP() << "only root can be several users";
    std::filesystem::create_directory(File("shared"));
    ASSERT_EQ(chmod(File("shared").c_str(), 01777), 0);
  }

  static void GiveAway(const std::string& path) {
    ASSERT_EQ(lchown(path.c_str(), kStranger, kStranger), 0);
  }
};

TEST_F(SharedLogFileTest, RefusesFilesLinksAndPipesOfOtherUsers) {
  GiveAway(folder_.Write("shared/log", "old"));
  EXPECT_EQ(Refusal(File("shared/log")),
            "the file belongs to user 4321, in a folder where others can create files");
  ASSERT_EQ(symlink(File("victim").c_str(), File("shared/link").c_str()), 0);
  GiveAway(File("shared/link"));
  EXPECT_THAT(Refusal(File("shared/link")), HasSubstr("belongs to user 4321"));
  ASSERT_EQ(mkfifo(File("shared/pipe").c_str(), 0622), 0);
  GiveAway(File("shared/pipe"));
  EXPECT_THAT(Refusal(File("shared/pipe")), HasSubstr("belongs to user 4321"));
}

TEST_F(SharedLogFileTest, UsesOwnFiles) {
  EXPECT_TRUE(Append(File("shared/log"), "one\n"));
  EXPECT_TRUE(Append(File("shared/log"), "two\n"));
  EXPECT_EQ(ReadFile(File("shared/log")), "one\ntwo\n");
}

TEST_F(SharedLogFileTest, RefusesAFileThatAStrangerCreatedSincePreparing) {
  FileProblem problem;
  const std::optional<LogFile> log = LogFile::Prepare(File("shared/log"), &problem);
  ASSERT_TRUE(log);
  GiveAway(folder_.Write("shared/log", ""));
  EXPECT_FALSE(log->Open(&problem));
}

// A provider that closes descriptors, after which the number belongs to a file of its own.
TEST_F(LogFileTest, ALogThatWasClosedIsNotWrittenToAnotherFile) {
  ComponentLog log;
  ASSERT_TRUE(log.Configure(std::nullopt, File("log")));
  logfile.Log("first", 5);
  const std::string other = folder_.Write("other", "");
  const int replacement = open(other.c_str(), O_WRONLY | O_CLOEXEC);
  for (int descriptor = 3; descriptor < 64; ++descriptor) {
    struct stat info = {};
    struct stat log_info = {};
    ASSERT_EQ(stat(File("log").c_str(), &log_info), 0);
    if (fstat(descriptor, &info) == 0 && IsSameFile(info, log_info)) {
      ASSERT_EQ(dup2(replacement, descriptor), descriptor);
    }
  }
  testing::internal::CaptureStderr();
  logfile.Log("second", 5);
  logfile.Log("third", 5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cardcert: warning: the provider closed the log file; the rest of the log is lost\n");
  EXPECT_EQ(ReadFile(other), "");
  EXPECT_THAT(ReadFile(File("log")), HasSubstr(" 5 first\n"));
  close(replacement);
}

}  // namespace
}  // namespace cardcert::cli
