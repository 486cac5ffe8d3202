#include "output_file_fixture.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

namespace cardcert::cli {
namespace {

using support::ReadFile;

using OutputFileTest = OutputFileFixture;

TEST_F(OutputFileTest, CreatesFilesWithDefaultPermissions) {
  const mode_t before = umask(027);
  const bool written = WriteTo(folder_.File("new"), "data");
  umask(before);
  EXPECT_TRUE(written);
  EXPECT_EQ(ReadFile(folder_.File("new")), "data");
  EXPECT_EQ(Mode(folder_.File("new")), 0640U);
  EXPECT_EQ(NumFiles(), 1U);
}

TEST_F(OutputFileTest, KeepsPermissionsOfAReplacedFile) {
  const std::string path = folder_.Write("old", "a longer text than the new one");
  chmod(path.c_str(), 0600);
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_EQ(Mode(path), 0600U);
  EXPECT_EQ(NumFiles(), 1U);
}

TEST_F(OutputFileTest, FollowsASymbolicLink) {
  const std::string path = folder_.Write("file", "old");
  ASSERT_EQ(symlink(path.c_str(), folder_.File("link").c_str()), 0);
  EXPECT_TRUE(WriteTo(folder_.File("link"), "data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File("link")));
}

TEST_F(OutputFileTest, FollowsSymbolicLinksToAMissingFile) {
  ASSERT_EQ(symlink("second", folder_.File("first").c_str()), 0);
  ASSERT_EQ(symlink("new", folder_.File("second").c_str()), 0);
  EXPECT_TRUE(Prepares(folder_.File("first")));
  EXPECT_TRUE(WriteTo(folder_.File("first"), "data"));
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File("first")));
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File("second")));
  EXPECT_EQ(ReadFile(folder_.File("new")), "data");
  EXPECT_EQ(NumFiles(), 3U);
}

TEST_F(OutputFileTest, RefusesSymbolicLinkLoops) {
  ASSERT_EQ(symlink("b", folder_.File("a").c_str()), 0);
  ASSERT_EQ(symlink("a", folder_.File("b").c_str()), 0);
  EXPECT_FALSE(Prepares(folder_.File("a")));
}

TEST_F(OutputFileTest, AcceptsNamesOfMaximumLength) {
  const std::string longest = folder_.File(std::string(255, 'x'));
  EXPECT_TRUE(Prepares(longest));
  EXPECT_TRUE(WriteTo(longest, "data"));
  EXPECT_EQ(ReadFile(longest), "data");
  EXPECT_EQ(NumFiles(), 1U);
  EXPECT_FALSE(Prepares(longest + "x"));
}

TEST_F(OutputFileTest, RefusesFolders) {
  for (const std::string& path : {folder_.path(), folder_.File("letter/")}) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Prepares(path));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cardcert: error: cannot write '" + path + "': Is a directory\n");
  }
}

TEST_F(OutputFileTest, WritesToDevicesAndPipesInPlace) {
  EXPECT_TRUE(Prepares("/dev/null"));
  EXPECT_TRUE(WriteTo("/dev/null", "data"));
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  int ends[2] = {};
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_TRUE(WriteTo("/dev/fd/" + std::to_string(ends[1]), "data"));
  char data[5] = {};
  EXPECT_EQ(read(ends[0], data, sizeof data), 4);
  close(ends[0]);
  close(ends[1]);
  EXPECT_FALSE(WriteTo("/dev/full", "data"));
}

TEST_F(OutputFileTest, TreatsDevStdoutAsStandardOutput) {
  testing::internal::CaptureStdout();
  std::printf("before ");
  std::fflush(stdout);
  EXPECT_TRUE(WriteTo("/dev/stdout", "data"));
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
        _exit(Prepares(path) ? 1 : 0);
      },
      testing::ExitedWithCode(0), "cannot write '.*/old': Permission denied");
}

TEST_F(OutputFileTest, CheckFindsMistakesBeforeWriting) {
  EXPECT_TRUE(Prepares(folder_.File("new")));
  EXPECT_FALSE(Prepares(folder_.path()));
  EXPECT_FALSE(Prepares(folder_.File("no/such/folder")));
  EXPECT_FALSE(Prepares(""));
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
  const bool written = WriteTo(path, std::string(1000, 'x'));
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, before);
  EXPECT_FALSE(written);
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(NumFiles(), 1U);
}

TEST_F(OutputFileTest, AppendsToWhatAnInheritedDescriptorHoldsAlready) {
  const std::string path = folder_.Write("inherited", "");
  const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(write(descriptor, "before ", 7), 7);
  EXPECT_TRUE(WriteTo("/proc/self/fd/" + std::to_string(descriptor), "data"));
  EXPECT_EQ(write(descriptor, " after", 6), 6);
  close(descriptor);
  EXPECT_EQ(ReadFile(path), "before data after");
}

TEST_F(OutputFileTest, RefusesADescriptorThatIsOpenForReading) {
  const std::string path = folder_.Write("read", "old");
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const std::string name = "/dev/fd/" + std::to_string(descriptor);
  EXPECT_THAT(ErrorOf([&] { return Prepares(name); }),
              testing::HasSubstr("has no name to replace"));
  close(descriptor);
}

// The same number stands for another file in another process.
TEST_F(OutputFileTest, RefusesFilesThatAnotherProcessHasOpen) {
  const std::string ours = folder_.Write("ours", "");
  const std::string theirs = folder_.Write("theirs", "old");
  const int descriptor = open(ours.c_str(), O_WRONLY | O_CLOEXEC);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open(theirs.c_str(), O_WRONLY | O_CLOEXEC), descriptor);
    for (;;)
      pause();
  }
  EXPECT_FALSE(
      WriteTo("/proc/" + std::to_string(child) + "/fd/" + std::to_string(descriptor), "data"));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(descriptor);
  EXPECT_EQ(ReadFile(ours), "");
  EXPECT_EQ(ReadFile(theirs), "old");
}

TEST_F(OutputFileTest, WritesToStandardOutputUnderAnyOfItsNames) {
  ASSERT_EQ(symlink("/dev/stdout", File("link").c_str()), 0);
  for (const std::string& path : {File("link"), std::string("/dev/fd/1"), std::string("-")}) {
    testing::internal::CaptureStdout();
    std::printf("before ");  // in the buffer of stdout, which has to be written first
    EXPECT_TRUE(WriteTo(path, "data"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "before data") << path;
  }
}

TEST_F(OutputFileTest, RefusesSockets) {
  ASSERT_EQ(mknod(File("socket").c_str(), S_IFSOCK | 0600, 0), 0);
  EXPECT_THAT(ErrorOf([this] { return Prepares(File("socket")); }),
              testing::HasSubstr("is a socket"));
}

TEST_F(OutputFileTest, RecognisesTerminals) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  const std::string name = ptsname(terminal);
  EXPECT_TRUE(OutputFile::Prepare(name)->IsTerminal());
  const int other_end = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_TRUE(OutputFile::Prepare("/dev/fd/" + std::to_string(other_end))->IsTerminal());
  close(other_end);
  close(terminal);
  EXPECT_FALSE(OutputFile::Prepare("/dev/null")->IsTerminal());
  EXPECT_FALSE(OutputFile::Prepare(File("new"))->IsTerminal());
}

TEST_F(OutputFileTest, PreparingChangesNothing) {
  const std::string path = folder_.Write("old", "old");
  const struct stat before = InfoOf(path);
  EXPECT_TRUE(Prepares(path));
  EXPECT_TRUE(Prepares(File("new")));
  EXPECT_EQ(NumFiles(), 1U);
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(InfoOf(path).st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(OutputFileTest, LeavesTheUmaskAsItWas) {
  const mode_t before = umask(027);
  EXPECT_TRUE(WriteTo(File("new"), "data"));
  EXPECT_EQ(umask(before), 027U);
}

// Returns true if the output and the path are the same file.
bool IsFile(const std::optional<OutputFile>& output, const std::string& path) {
  return output && FileIdentity::OfPath(path) == output->identity();
}

TEST_F(OutputFileTest, KnowsWhichFileItReplaces) {
  const std::string path = folder_.Write("file", "data");
  ASSERT_EQ(link(path.c_str(), File("hard").c_str()), 0);
  ASSERT_EQ(symlink("file", File("soft").c_str()), 0);
  folder_.Write("other", "data");
  const std::optional<OutputFile> existing = OutputFile::Prepare(path);
  EXPECT_TRUE(IsFile(existing, path));
  EXPECT_TRUE(IsFile(existing, File("hard")));
  EXPECT_TRUE(IsFile(existing, File("soft")));
  EXPECT_FALSE(IsFile(existing, File("other")));
  EXPECT_FALSE(IsFile(existing, File("none")));
  const std::optional<OutputFile> fresh = OutputFile::Prepare(File("new"));
  EXPECT_TRUE(IsFile(fresh, folder_.path() + "/./new"));
  EXPECT_FALSE(IsFile(fresh, path));
  EXPECT_FALSE(fresh->IsStandardOutput());
  EXPECT_EQ(OutputFile::Prepare("/dev/null")->identity().kind(), FileKind::kNull);
}

TEST_F(OutputFileTest, StandardInputMayBeTheFileThatItReplaces) {
  const std::string path = folder_.Write("in", "data");
  const int before = dup(STDIN_FILENO);
  const int in = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(dup2(in, STDIN_FILENO), STDIN_FILENO);
  EXPECT_EQ(OutputFile::Prepare(path)->identity(), FileIdentity::OfDescriptor(STDIN_FILENO));
  EXPECT_TRUE(IsFile(OutputFile::Prepare(path), "/dev/stdin"));
  dup2(before, STDIN_FILENO);
  close(before);
  close(in);
}

TEST_F(OutputFileTest, KnowsTheNamesOfStandardOutput) {
  for (const char* const path :
       {"-", "/dev/stdout", "/dev/fd/1", "/proc/self/fd/1", "/proc/thread-self/fd/1"})
    EXPECT_TRUE(OutputFile::Prepare(path)->IsStandardOutput()) << path;
  EXPECT_FALSE(OutputFile::Prepare("/dev/fd/2")->IsStandardOutput());
}

}  // namespace
}  // namespace cardcert::cli
