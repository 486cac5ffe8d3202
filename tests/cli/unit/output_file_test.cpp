#include "cli/output/output_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "support/files.h"

namespace cardcert::cli {
namespace {

using support::ReadFile;
using support::TempFolder;

class OutputFileTest : public testing::Test {
 protected:
  std::size_t NumFiles() const {
    const std::filesystem::directory_iterator files(folder_.path());
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }
  static mode_t Mode(const std::string& path) {
    struct stat info = {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0);
    return info.st_mode & 07777;
  }

  TempFolder folder_;
};

TEST_F(OutputFileTest, CreatesFilesWithDefaultPermissions) {
  const mode_t before = umask(027);
  const bool written = OutputFile(folder_.File("new")).Write("data");
  umask(before);
  EXPECT_TRUE(written);
  EXPECT_EQ(ReadFile(folder_.File("new")), "data");
  EXPECT_EQ(Mode(folder_.File("new")), 0640U);
  EXPECT_EQ(NumFiles(), 1U);
}

TEST_F(OutputFileTest, KeepsPermissionsOfAReplacedFile) {
  const std::string path = folder_.Write("old", "a longer text than the new one");
  chmod(path.c_str(), 0600);
  EXPECT_TRUE(OutputFile(path).Write("data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_EQ(Mode(path), 0600U);
  EXPECT_EQ(NumFiles(), 1U);
}

TEST_F(OutputFileTest, FollowsASymbolicLink) {
  const std::string path = folder_.Write("file", "old");
  ASSERT_EQ(symlink(path.c_str(), folder_.File("link").c_str()), 0);
  EXPECT_TRUE(OutputFile(folder_.File("link")).Write("data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File("link")));
}

TEST_F(OutputFileTest, FollowsSymbolicLinksToAMissingFile) {
  ASSERT_EQ(symlink("second", folder_.File("first").c_str()), 0);
  ASSERT_EQ(symlink("new", folder_.File("second").c_str()), 0);
  EXPECT_TRUE(OutputFile(folder_.File("first")).Check());
  EXPECT_TRUE(OutputFile(folder_.File("first")).Write("data"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File("first")));
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File("second")));
  EXPECT_EQ(ReadFile(folder_.File("new")), "data");
  EXPECT_EQ(NumFiles(), 3U);
}

TEST_F(OutputFileTest, RefusesSymbolicLinkLoops) {
  ASSERT_EQ(symlink("b", folder_.File("a").c_str()), 0);
  ASSERT_EQ(symlink("a", folder_.File("b").c_str()), 0);
  EXPECT_FALSE(OutputFile(folder_.File("a")).Check());
}

TEST_F(OutputFileTest, AcceptsNamesOfMaximumLength) {
  const std::string longest = folder_.File(std::string(255, 'x'));
  EXPECT_TRUE(OutputFile(longest).Check());
  EXPECT_TRUE(OutputFile(longest).Write("data"));
  EXPECT_EQ(ReadFile(longest), "data");
  EXPECT_EQ(NumFiles(), 1U);
  EXPECT_FALSE(OutputFile(longest + "x").Check());
}

TEST_F(OutputFileTest, RefusesFolders) {
  for (const std::string& path : {folder_.path(), folder_.File("letter/")}) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(OutputFile(path).Check());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cardcert: cannot write '" + path + "': Is a directory\n");
  }
}

TEST_F(OutputFileTest, WritesToDevicesAndPipesInPlace) {
  EXPECT_TRUE(OutputFile("/dev/null").Check());
  EXPECT_TRUE(OutputFile("/dev/null").Write("data"));
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  int ends[2] = {};
  ASSERT_EQ(pipe(ends), 0);
  const OutputFile to_pipe("/dev/fd/" + std::to_string(ends[1]));
  EXPECT_TRUE(to_pipe.Check());
  EXPECT_TRUE(to_pipe.Write("data"));
  char data[5] = {};
  EXPECT_EQ(read(ends[0], data, sizeof data), 4);
  close(ends[0]);
  close(ends[1]);
  EXPECT_FALSE(OutputFile("/dev/full").Write("data"));
}

TEST_F(OutputFileTest, TreatsDevStdoutAsStandardOutput) {
  testing::internal::CaptureStdout();
  std::printf("before ");
  std::fflush(stdout);
  EXPECT_TRUE(OutputFile("/dev/stdout").Write("data"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "before data");
}

TEST_F(OutputFileTest, DoesNotReplaceAReadOnlyFile) {
  const std::string path = folder_.Write("old", "old");
  ASSERT_EQ(chmod(path.c_str(), 0444), 0);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
  EXPECT_EXIT(
      {
        if (getuid() == 0 && setuid(65534) != 0)  // Root may write everywhere.
          _exit(2);
        _exit(OutputFile(path).Check() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "cannot write '.*/old': Permission denied");
}

TEST_F(OutputFileTest, CheckFindsMistakesBeforeWriting) {
  EXPECT_TRUE(OutputFile(folder_.File("new")).Check());
  EXPECT_FALSE(OutputFile(folder_.path()).Check());
  EXPECT_FALSE(OutputFile(folder_.File("no/such/folder")).Check());
  EXPECT_FALSE(OutputFile("").Check());
  EXPECT_EQ(NumFiles(), 0U);
}

TEST_F(OutputFileTest, KeepsTheOldFileIfTheDiskIsFull) {
  const std::string path = folder_.Write("old", "old");
  // No file may grow beyond ten bytes: the write fails halfway.
  const auto before = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small = {10, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool written = OutputFile(path).Write(std::string(1000, 'x'));
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, before);
  EXPECT_FALSE(written);
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(NumFiles(), 1U);
}

}  // namespace
}  // namespace cardcert::cli
