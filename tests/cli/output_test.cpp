// sign --out, when other users or the provider interfere.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;

class OutputTest : public CardcertTest {
 protected:
  void SetUp() override {
    CardcertTest::SetUp();
    in_ = Write("in", "x");
  }

  Words SignCommand(const std::string& out) const {
    return Command({"sign", "1024", "--in", in_, "--out", out, "--pin-file", PinFile()});
  }

  // Signs with the tampering provider and the umask 027, and with the folder "here" as the working
  // directory.
  Finished SignWithTampering(const std::string& out) const {
    std::filesystem::create_directory(File("here"));
    Words command = SignCommand(out);
    command.back() = TAMPERING_PROVIDER;
    return InShell("umask 027; cd '" + File("here") + "' && exec \"$@\"", command);
  }

  static mode_t Mode(const std::string& path) {
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
  }

  std::string in_;
};

TEST_F(OutputTest, AProviderThatChangesTheWorkingFolderDoesNotMoveTheOutput) {
  std::filesystem::create_directory(File("elsewhere"));
  environment_["TAMPER_CHDIR"] = File("elsewhere");
  const Finished run = SignWithTampering("sig");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(ReadFile(File("here/sig")).size(), 128U);
  EXPECT_TRUE(std::filesystem::is_empty(File("elsewhere")));
}

TEST_F(OutputTest, AProviderThatChangesTheUmaskDoesNotOpenTheOutput) {
  environment_["TAMPER_UMASK"] = "1";
  const Finished run = SignWithTampering("sig");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Mode(File("here/sig")), 0640U);
}

TEST_F(OutputTest, AProviderThatReusesDescriptorsDoesNotGetTheOutput) {
  environment_["TAMPER_CLOSE"] = Write("other", "");
  const Finished run = SignWithTampering("sig");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            Error("cannot write 'sig': the provider closed a file that the program needs"));
  EXPECT_EQ(ReadFile(File("other")), "");
  EXPECT_TRUE(std::filesystem::is_empty(File("here")));
}

TEST_F(OutputTest, RefusesAnOutputThatIsTheNewLogFile) {
  Words command = SignCommand(File("new"));
  command.insert(command.end(), {"--log-file", File("./new")});
  EXPECT_EQ(RunProgram(command, environment_).status, 2);
  EXPECT_FALSE(Exists(File("new")));
}

TEST_F(OutputTest, RefusesAnOutputThatIsStandardInput) {
  Words command = SignCommand(in_);
  command[4] = "-";  // --in
  EXPECT_EQ(RunProgram(command, environment_, in_).status, 2);
  EXPECT_EQ(ReadFile(in_), "x");
}

constexpr uid_t kUser = 65533;
constexpr uid_t kStranger = 4321;

// Several users and a folder in which all of them may create files.
class SharedOutputTest : public OutputTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0)
      GTEST_SKIP() << "only root can be several users";
    OutputTest::SetUp();
    if (IsSkipped())
      return;
    ASSERT_EQ(chmod(File(".").c_str(), 0755), 0);
    std::filesystem::create_directory(File("shared"));
    ASSERT_EQ(chmod(File("shared").c_str(), 01777), 0);
    std::filesystem::create_directory(File("private"));
  }

  std::string Link(const std::string& name, const std::string& target, uid_t owner) const {
    const std::string path = File("shared/" + name);
    EXPECT_EQ(symlink(target.c_str(), path.c_str()), 0);
    EXPECT_EQ(lchown(path.c_str(), owner, owner), 0);
    return path;
  }

  Finished Sign(const std::string& out) const { return RunProgram(SignCommand(out), environment_); }

  // The same as the user, to whom all of the test's files but those in "shared" are given.
  Finished SignAsUser(const std::string& out) const {
    const Words command = SignCommand(out);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(File("."))) {
      const bool is_shared = entry.path().string().find("/shared") != std::string::npos;
      EXPECT_TRUE(is_shared || lchown(entry.path().c_str(), kUser, kUser) == 0);
    }
    return RunProgram(Concat({"setpriv", "--reuid=" + std::to_string(kUser),
                              "--regid=" + std::to_string(kUser), "--clear-groups"},
                             command),
                      environment_);
  }

  // Returns true if other users can execute the program. Its build tree may be private.
  bool IsProgramAccessible() const {
    return RunProgram({"setpriv", "--reuid=" + std::to_string(kUser), "--clear-groups",
                       CARDCERT_PROGRAM, "--version"})
               .status == 0;
  }
};

TEST_F(SharedOutputTest, RootDoesNotWriteThroughLinksOfOtherUsers) {
  const std::string victim = Write("private/file", "old");
  const Finished run = Sign(Link("link", victim, kStranger));
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, Error("cannot write '" + File("shared/link") +
                           "': the symbolic link 'link' belongs to user 4321 and is in a folder "
                           "that everybody can write to, so it is not followed") +
                         Hint("use another folder, or the path that the link leads to"));
  EXPECT_EQ(ReadFile(victim), "old");
  EXPECT_EQ(Sign(Link("dangling", File("private/new"), kStranger)).status, 2);
  EXPECT_FALSE(Exists(File("private/new")));
}

TEST_F(SharedOutputTest, RootDoesNotOverwriteFilesOfOtherUsersInStickyFolders) {
  const std::string planted = Write("shared/sig", "old");
  ASSERT_EQ(chown(planted.c_str(), kStranger, kStranger), 0);
  EXPECT_EQ(Sign(planted).status, 2);
  EXPECT_EQ(ReadFile(planted), "old");
}

TEST_F(SharedOutputTest, RootKeepsTheOwnerOfAFile) {
  const std::string path = Write("private/sig", "old");
  ASSERT_EQ(chown(path.c_str(), kStranger, kStranger), 0);
  EXPECT_EQ(Sign(path).status, 0);
  struct stat info = {};
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, kStranger);
  EXPECT_EQ(info.st_size, 128);
}

TEST_F(SharedOutputTest, AUserWritesThroughOwnLinksOnly) {
  if (!IsProgramAccessible())
    GTEST_SKIP() << "other users cannot execute the program in this build tree";
  const Finished own = SignAsUser(Link("own", File("private/own"), kUser));
  EXPECT_EQ(own.status, 0) << own.err;
  ExpectSignature(File("private/own"), "rsa1024", in_);
  EXPECT_EQ(SignAsUser(Link("strange", File("private/strange"), kStranger)).status, 2);
  EXPECT_FALSE(Exists(File("private/strange")));
}

TEST_F(SharedOutputTest, AUserCannotTakeOverFilesOfOthers) {
  if (!IsProgramAccessible())
    GTEST_SKIP() << "other users cannot execute the program in this build tree";
  std::filesystem::create_directory(File("shared/open"));
  ASSERT_EQ(chmod(File("shared/open").c_str(), 0777), 0);
  const std::string path = Write("shared/open/sig", "old");
  ASSERT_EQ(chown(path.c_str(), kStranger, kStranger), 0);
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  const Finished run = SignAsUser(path);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, Error("cannot write '" + File("shared/open/sig") +
                           "': its owner, user 4321, cannot be kept: Operation not permitted") +
                         Hint("remove the file first, or write to another one"));
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(File("shared/open")), {}), 1);
}

}  // namespace
