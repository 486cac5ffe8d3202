#include "cli/files/file_identity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "support/files.h"

namespace cardcert::cli {
namespace {

class FileIdentityTest : public testing::Test {
 protected:
  std::string File(const std::string& name) const { return folder_.File(name); }

  static FileIdentity Of(const std::string& path) {
    const std::optional<FileIdentity> identity = FileIdentity::OfPath(path);
    if (!identity)
      throw std::runtime_error("no identity of " + path);
    return *identity;
  }

  support::TempFolder folder_;
};

TEST_F(FileIdentityTest, DifferentFilesDiffer) {
  folder_.Write("a", "same");
  folder_.Write("b", "same");
  EXPECT_NE(Of(File("a")), Of(File("b")));
  EXPECT_EQ(Of(File("a")), Of(folder_.path() + "/./a"));
  EXPECT_EQ(Of(File("a")).kind(), FileKind::kRegular);
}

TEST_F(FileIdentityTest, LinksAreTheFileTheyLeadTo) {
  folder_.Write("file", "x");
  ASSERT_EQ(link(File("file").c_str(), File("hard").c_str()), 0);
  ASSERT_EQ(symlink("file", File("soft").c_str()), 0);
  ASSERT_EQ(symlink(folder_.path().c_str(), File("folder").c_str()), 0);
  EXPECT_EQ(Of(File("hard")), Of(File("file")));
  EXPECT_EQ(Of(File("soft")), Of(File("file")));
  EXPECT_EQ(Of(File("folder/file")), Of(File("file")));
}

TEST_F(FileIdentityTest, MissingFilesAreTheirFolderAndName) {
  std::filesystem::create_directory(File("folder"));
  EXPECT_EQ(Of(File("new")), Of(File("folder/../new")));
  EXPECT_NE(Of(File("new")), Of(File("other")));
  EXPECT_NE(Of(File("new")), Of(File("folder/new")));
  EXPECT_NE(Of(File("new")), Of(folder_.path()));
  EXPECT_EQ(Of(File("new")).kind(), FileKind::kMissing);
}

TEST_F(FileIdentityTest, LinksToAMissingFileAreThatFile) {
  ASSERT_EQ(symlink("second", File("first").c_str()), 0);
  ASSERT_EQ(symlink(File("new").c_str(), File("second").c_str()), 0);
  EXPECT_EQ(Of(File("first")), Of(File("new")));
  EXPECT_NE(Of(File("first")), Of(File("first2")));
}

TEST_F(FileIdentityTest, LinksOfOtherUsersAreTheFileTheyLeadTo) {
  ASSERT_EQ(chmod(folder_.path().c_str(), 01777), 0);
  ASSERT_EQ(symlink("new", File("link").c_str()), 0);
  if (lchown(File("link").c_str(), 4321, 4321) != 0)
    GTEST_SKIP() << "only root can make files of other users";
  EXPECT_EQ(Of(File("link")), Of(File("new")));
}

TEST_F(FileIdentityTest, AFolderMayEndInASlash) {
  EXPECT_EQ(Of(folder_.path() + "/"), Of(folder_.path()));
}

TEST_F(FileIdentityTest, RelativePathsStartInTheWorkingFolder) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  const FileIdentity relative = Of("new");
  std::filesystem::current_path(before);
  EXPECT_EQ(relative, Of(File("new")));
}

TEST_F(FileIdentityTest, WhatCannotBeOpenedHasNone) {
  ASSERT_EQ(symlink("loop", File("loop").c_str()), 0);
  EXPECT_FALSE(FileIdentity::OfPath(File("no/such/folder")));
  EXPECT_FALSE(FileIdentity::OfPath(File("loop")));
  EXPECT_FALSE(FileIdentity::OfPath(""));
  EXPECT_FALSE(FileIdentity::OfPath(File("new/")));
  EXPECT_FALSE(FileIdentity::OfPath(File(std::string(256, 'x'))));
  EXPECT_FALSE(FileIdentity::OfDescriptor(-1));
}

TEST_F(FileIdentityTest, DescriptorsAreTheirFile) {
  folder_.Write("file", "x");
  const int file = open(File("file").c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(FileIdentity::OfDescriptor(file), Of(File("file")));
  EXPECT_EQ(Of("/dev/fd/" + std::to_string(file)), Of(File("file")));
  close(file);
}

TEST_F(FileIdentityTest, StandardInputIsItsFile) {
  folder_.Write("file", "x");
  const int before = dup(STDIN_FILENO);
  const int file = open(File("file").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(dup2(file, STDIN_FILENO), STDIN_FILENO);
  EXPECT_EQ(Of("/dev/stdin"), Of(File("file")));
  EXPECT_EQ(Of("/dev/stdin"), FileIdentity::OfDescriptor(STDIN_FILENO));
  int ends[2] = {};
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  EXPECT_EQ(Of("/dev/stdin"), FileIdentity::OfDescriptor(ends[0]));
  EXPECT_EQ(Of("/dev/stdin").kind(), FileKind::kPipe);
  dup2(before, STDIN_FILENO);
  for (const int descriptor : {before, file, ends[0], ends[1]})
    close(descriptor);
}

TEST_F(FileIdentityTest, PipesAreToldApart) {
  ASSERT_EQ(mkfifo(File("a").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(File("b").c_str(), 0600), 0);
  EXPECT_NE(Of(File("a")), Of(File("b")));
  EXPECT_EQ(Of(File("a")), Of(File("a")));
  EXPECT_EQ(Of(File("a")).kind(), FileKind::kPipe);
}

TEST_F(FileIdentityTest, TellsTheKindsOfDevices) {
  EXPECT_EQ(Of("/dev/null").kind(), FileKind::kNull);
  EXPECT_EQ(Of("/dev/full").kind(), FileKind::kNull);
  EXPECT_NE(Of("/dev/null"), Of("/dev/full"));
  EXPECT_EQ(Of("/dev").kind(), FileKind::kFolder);
  EXPECT_EQ(Of("/dev/tty").kind(), FileKind::kTerminal);
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  EXPECT_EQ(Of(ptsname(terminal)).kind(), FileKind::kTerminal);
  close(terminal);
}

TEST_F(FileIdentityTest, NodesOfOneDeviceAreEqual) {
  if (mknod(File("null").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0)
    GTEST_SKIP() << "only root can make device nodes";
  EXPECT_EQ(Of(File("null")), Of("/dev/null"));
  ASSERT_EQ(mknod(File("block").c_str(), S_IFBLK | 0600, makedev(1, 3)), 0);
  EXPECT_NE(Of(File("block")), Of(File("null")));
  ASSERT_EQ(mknod(File("misc").c_str(), S_IFCHR | 0600, makedev(10, 1)), 0);
  EXPECT_EQ(Of(File("misc")).kind(), FileKind::kDevice);
}

TEST_F(FileIdentityTest, BindMountsAreTheFolderTheyShow) {
  folder_.Write("file", "x");
  std::filesystem::create_directory(File("mounted"));
  const pid_t child = fork();
  if (child == 0) {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(folder_.path().c_str(), File("mounted").c_str(), nullptr, MS_BIND, nullptr) != 0)
      _exit(2);
    const bool equal = Of(File("mounted/file")) == Of(File("file")) &&
                       Of(File("mounted/new")) == Of(File("new")) &&
                       Of(File("mounted/new")) != Of(File("mounted/other"));
    _exit(equal ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2)
    GTEST_SKIP() << "only root can mount";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace cardcert::cli
