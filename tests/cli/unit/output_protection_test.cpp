// Output files in folders that others share, with owners and attributes, and beside a provider that
// changes the process.
#include <fcntl.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <functional>

#include "output_file_fixture.h"

namespace cardcert::cli {
namespace {

using support::Exists;
using support::ReadFile;
using testing::HasSubstr;

constexpr uid_t kOther = 65533;    // a user who is neither root nor "nobody"
constexpr uid_t kStranger = 4321;  // and another one

// Files of several users, which only root can make.
class SharedFolderTest : public OutputFileFixture {
 protected:
  void SetUp() override {
    if (geteuid() != 0)
      GTEST_SKIP() << "only root can make files of other users";
    ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
    ASSERT_EQ(mkdir(shared_.c_str(), 0700), 0);
    ASSERT_EQ(chmod(shared_.c_str(), 01777), 0);
    ASSERT_EQ(mkdir(private_folder_.c_str(), 0755), 0);
    ASSERT_EQ(chmod(private_folder_.c_str(), 0755), 0);
  }

  // A link of `owner` in the shared folder.
  std::string Link(const std::string& name, const std::string& target, uid_t owner) const {
    const std::string path = shared_ + "/" + name;
    EXPECT_EQ(symlink(target.c_str(), path.c_str()), 0);
    EXPECT_EQ(lchown(path.c_str(), owner, owner), 0);
    return path;
  }

  std::string FileOf(uid_t owner, const std::string& path) const {
    folder_.Write(path, "old");
    EXPECT_EQ(chown(File(path).c_str(), owner, owner), 0);
    return File(path);
  }

  // Runs `run` as another user and returns what it returned.
  static bool As(uid_t user, const std::function<bool()>& run) {
    const pid_t child = fork();
    if (child == 0) {
      if (setgid(user) != 0 || setuid(user) != 0)
        _exit(2);
      _exit(run() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2);
    return status == 0;
  }

  const std::string shared_ = File("shared");
  const std::string private_folder_ = File("private");
};

TEST_F(SharedFolderTest, RefusesLinksOfOtherUsersInStickyFolders) {
  const std::string target = folder_.Write("private/file", "old");
  const std::string link = Link("link", target, kOther);
  EXPECT_EQ(
      ErrorOf([&] { return WriteTo(link, "data"); }),
      Printed(
          "cannot write '" + link +
              "': the symbolic link 'link' belongs to user 65533 and is in a folder that everybody"
              " can write to, so it is not followed",
          "use another folder, or the path that the link leads to"));
  EXPECT_EQ(ReadFile(target), "old");
}

TEST_F(SharedFolderTest, RefusesLinksOfOtherUsersToMissingFiles) {
  EXPECT_FALSE(WriteTo(Link("link", private_folder_ + "/new", kOther), "data"));
  EXPECT_FALSE(Exists(private_folder_ + "/new"));
}

TEST_F(SharedFolderTest, RefusesLinksOfOtherUsersBehindLinksOfOurs) {
  const std::string target = folder_.Write("private/file", "old");
  Link("second", target, kOther);
  EXPECT_FALSE(WriteTo(Link("first", "second", 0), "data"));
  EXPECT_FALSE(WriteTo(Link("absolute", shared_ + "/second", 0), "data"));
  EXPECT_EQ(ReadFile(target), "old");
}

TEST_F(SharedFolderTest, RefusesLinksOfOtherUsersToDevices) {
  EXPECT_FALSE(WriteTo(Link("null", "/dev/null", kOther), "data"));
  EXPECT_FALSE(WriteTo(Link("stdout", "/proc/self/fd/1", kOther), "data"));
}

TEST_F(SharedFolderTest, FollowsOwnLinks) {
  const std::string target = folder_.Write("private/file", "old");
  EXPECT_TRUE(WriteTo(Link("link", target, 0), "data"));
  EXPECT_EQ(ReadFile(target), "data");
}

TEST_F(SharedFolderTest, FollowsLinksOfTheFoldersOwner) {
  ASSERT_EQ(chown(shared_.c_str(), kOther, kOther), 0);
  const std::string target = folder_.Write("private/file", "old");
  EXPECT_TRUE(WriteTo(Link("link", target, kOther), "data"));
  EXPECT_EQ(ReadFile(target), "data");
  EXPECT_FALSE(WriteTo(Link("planted", target, kStranger), "more"));
}

TEST_F(SharedFolderTest, UnmappedOwnersAreNotTakenForTheSameUser) {
  ASSERT_EQ(chown(shared_.c_str(), 65534, 65534), 0);
  EXPECT_FALSE(WriteTo(Link("link", private_folder_ + "/new", 65534), "data"));
  EXPECT_FALSE(WriteTo(FileOf(65534, "shared/file"), "data"));
}

TEST_F(SharedFolderTest, FollowsAnyLinkInFoldersThatAreNotShared) {
  for (const mode_t mode : {00777U, 01775U, 01755U}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(chmod(shared_.c_str(), mode), 0);
    const std::string target = folder_.Write("private/file", "old");
    EXPECT_TRUE(WriteTo(Link(std::to_string(mode), target, kOther), "data"));
    EXPECT_EQ(ReadFile(target), "data");
  }
}

// The kernel's rule concerns the last component alone.
TEST_F(SharedFolderTest, FollowsLinksOnTheWayAsTheKernelDoes) {
  Link("folder", private_folder_, kOther);
  EXPECT_TRUE(WriteTo(shared_ + "/folder/new", "data"));
  EXPECT_TRUE(WriteTo(Link("link", "folder/new", 0), "more"));
  EXPECT_EQ(ReadFile(private_folder_ + "/new"), "more");
}

TEST_F(SharedFolderTest, AnotherUserFollowsOwnLinksOnly) {
  ASSERT_EQ(chmod(private_folder_.c_str(), 0777), 0);
  const std::string own = Link("own", private_folder_ + "/own", kOther);
  const std::string strange = Link("strange", private_folder_ + "/strange", kStranger);
  const std::string roots = Link("roots", private_folder_ + "/roots", 0);
  EXPECT_TRUE(As(kOther, [&] { return WriteTo(own, "data"); }));
  EXPECT_FALSE(As(kOther, [&] { return WriteTo(strange, "data"); }));
  EXPECT_TRUE(As(kOther, [&] { return WriteTo(roots, "data"); }));  // the folder's owner
  EXPECT_FALSE(Exists(private_folder_ + "/strange"));
}

TEST_F(SharedFolderTest, RefusesFilesOfOtherUsersInStickyFolders) {
  const std::string path = FileOf(kOther, "shared/file");
  for (const mode_t mode : {01777U, 01775U}) {
    ASSERT_EQ(chmod(shared_.c_str(), mode), 0);
    EXPECT_EQ(
        ErrorOf([&] { return WriteTo(path, "data"); }),
        Printed("cannot write '" + path +
                    "': the file belongs to user 65533, in a folder where others can create files",
                "remove the file first, or write to another one"));
  }
  EXPECT_EQ(ReadFile(path), "old");
}

TEST_F(SharedFolderTest, ReplacesOwnFilesInStickyFolders) {
  EXPECT_TRUE(WriteTo(FileOf(0, "shared/file"), "data"));
  EXPECT_EQ(ReadFile(shared_ + "/file"), "data");
  ASSERT_EQ(chown(shared_.c_str(), kOther, kOther), 0);
  EXPECT_TRUE(WriteTo(FileOf(kOther, "shared/owners"), "data"));
}

TEST_F(SharedFolderTest, RefusesPipesOfOtherUsersInStickyFolders) {
  const std::string pipe = shared_ + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
  ASSERT_EQ(chown(pipe.c_str(), kOther, kOther), 0);
  EXPECT_FALSE(Prepares(pipe));
  ASSERT_EQ(chown(pipe.c_str(), 0, 0), 0);
  EXPECT_TRUE(Prepares(pipe));
}

TEST_F(SharedFolderTest, KeepsTheOwnerOfAReplacedFile) {
  const std::string path = FileOf(kOther, "private/file");
  ASSERT_EQ(chown(path.c_str(), kOther, kStranger), 0);
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_EQ(InfoOf(path).st_uid, kOther);
  EXPECT_EQ(InfoOf(path).st_gid, kStranger);
}

TEST_F(SharedFolderTest, KeepsTheOwnerIfTheGroupIsTheSame) {
  const std::string path = FileOf(0, "private/file");
  ASSERT_EQ(chown(path.c_str(), kOther, getegid()), 0);
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(InfoOf(path).st_uid, kOther);
}

TEST_F(SharedFolderTest, FindsPipesThatCannotBeWrittenToBeforehand) {
  const std::string pipe = private_folder_ + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
  EXPECT_FALSE(As(kOther, [&] { return Prepares(pipe); }));
}

TEST_F(SharedFolderTest, RefusesAFileWhoseOwnerCannotBeKept) {
  const std::string path = FileOf(kStranger, "private/file");
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  ASSERT_EQ(chmod(private_folder_.c_str(), 0777), 0);
  const auto prepare = [&] { return As(kOther, [&] { return Prepares(path); }); };
  EXPECT_EQ(ErrorOf(prepare), Printed("cannot write '" + path +
                                          "': its owner, user 4321, cannot be kept: Operation not"
                                          " permitted",
                                      "remove the file first, or write to another one"));
  ASSERT_EQ(chown(path.c_str(), kOther, kStranger), 0);  // a group the user is not in
  EXPECT_THAT(ErrorOf(prepare), HasSubstr("its group, number 4321, cannot be kept"));
  ASSERT_EQ(chown(path.c_str(), kOther, kOther), 0);
  EXPECT_TRUE(As(kOther, [&] { return WriteTo(path, "data"); }));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_EQ(NumFiles(), 3U);
}

TEST_F(SharedFolderTest, CreatesFilesInFoldersThatCannotBeRead) {
  ASSERT_EQ(chown(private_folder_.c_str(), kOther, kOther), 0);
  ASSERT_EQ(chmod(private_folder_.c_str(), 0300), 0);
  EXPECT_TRUE(As(kOther, [&] { return WriteTo(private_folder_ + "/new", "data"); }));
  EXPECT_EQ(ReadFile(private_folder_ + "/new"), "data");
}

TEST_F(SharedFolderTest, FindsFoldersThatCannotBeWrittenToBeforehand) {
  EXPECT_FALSE(As(kOther, [&] { return Prepares(private_folder_ + "/new"); }));
}

class AttributesTest : public OutputFileFixture {
 protected:
  static bool Set(const std::string& path, const char* name, const std::string& value) {
    return setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
  }
  static std::string Get(const std::string& path, const char* name) {
    char value[200];
    const ssize_t length = getxattr(path.c_str(), name, value, sizeof value);
    return length < 0 ? "none" : std::string(value, static_cast<std::size_t>(length));
  }

  // u::rw-, u:USER:PERMISSIONS, g::r--, m::rw-, o::--- in the form of linux/posix_acl_xattr.h
  static std::string AccessList(unsigned char user, unsigned char permissions) {
    const auto entry = [](unsigned char tag, unsigned char rights, unsigned char id) {
      return std::string{
          static_cast<char>(tag), 0, static_cast<char>(rights), 0, static_cast<char>(id), 0, 0, 0};
    };
    const auto without_id = [](unsigned char tag, unsigned char rights) {
      return std::string{static_cast<char>(tag), 0, static_cast<char>(rights), 0, -1, -1, -1, -1};
    };
    return std::string("\2\0\0\0", 4) + without_id(1, 6) + entry(2, permissions, user) +
           without_id(4, 4) + without_id(0x10, 6) + without_id(0x20, 0);
  }

  static constexpr char kAccess[] = "system.posix_acl_access";
  static constexpr char kDefault[] = "system.posix_acl_default";
};

TEST_F(AttributesTest, SetIdAndStickyBitsAreDropped) {
  const std::string path = folder_.Write("old", "old");
  ASSERT_EQ(chmod(path.c_str(), 07755), 0);
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(Mode(path), 0755U);
}

TEST_F(AttributesTest, PermissionsDoNotDependOnTheUmask) {
  const std::string path = folder_.Write("old", "old");
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  const mode_t before = umask(077);
  EXPECT_TRUE(WriteTo(path, "data"));
  umask(before);
  EXPECT_EQ(Mode(path), 0666U);
}

TEST_F(AttributesTest, KeepsAccessLists) {
  const std::string path = folder_.Write("old", "old");
  if (!Set(path, kAccess, AccessList(77, 6)))
    GTEST_SKIP() << "no access control lists here";
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_EQ(Get(path, kAccess), AccessList(77, 6));
  EXPECT_EQ(Mode(path), 0660U);
}

TEST_F(AttributesTest, AFileWithoutAccessListDoesNotGetTheFoldersOne) {
  const std::string path = folder_.Write("old", "old");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  if (!Set(folder_.path(), kDefault, AccessList(77, 6)))
    GTEST_SKIP() << "no access control lists here";
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(Get(path, kAccess), "none");
  EXPECT_EQ(Mode(path), 0600U);
}

TEST_F(AttributesTest, ANewFileGetsTheFoldersAccessList) {
  if (!Set(folder_.path(), kDefault, AccessList(77, 6)))
    GTEST_SKIP() << "no access control lists here";
  const mode_t before = umask(077);  // A default access control list stands in its place.
  EXPECT_TRUE(WriteTo(File("new"), "data"));
  umask(before);
  EXPECT_EQ(Get(File("new"), kAccess), AccessList(77, 6));
}

TEST_F(AttributesTest, KeepsExtendedAttributes) {
  const std::string path = folder_.Write("old", "old");
  if (!Set(path, "user.one", "1") || !Set(path, "user.empty", ""))
    GTEST_SKIP() << "no extended attributes here";
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_EQ(Get(path, "user.one"), "1");
  EXPECT_EQ(Get(path, "user.empty"), "");
}

TEST_F(AttributesTest, DropsFileCapabilities) {
  const std::string path = folder_.Write("old", "old");
  // VFS_CAP_REVISION_2 with CAP_CHOWN.
  const std::string capabilities("\0\0\0\2\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20);
  if (!Set(path, "security.capability", capabilities))
    GTEST_SKIP() << "only root can give capabilities to files";
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(Get(path, "security.capability"), "none");
  ASSERT_TRUE(Set(path, "security.capability", capabilities));
  EXPECT_TRUE(WriteTo(path, ""));  // without a write() to which the kernel would react
  EXPECT_EQ(Get(path, "security.capability"), "none");
}

TEST_F(AttributesTest, OtherHardLinksKeepTheOldContent) {
  const std::string path = folder_.Write("old", "old");
  ASSERT_EQ(link(path.c_str(), File("other").c_str()), 0);
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(ReadFile(path), "data");
  EXPECT_EQ(ReadFile(File("other")), "old");
}

// What a provider may do to the process between the two steps.
class ProviderTest : public OutputFileFixture {
 protected:
  void SetUp() override { working_folder_ = std::filesystem::current_path(); }
  void TearDown() override { std::filesystem::current_path(working_folder_); }

  std::filesystem::path working_folder_;
};

TEST_F(ProviderTest, ChangingTheWorkingFolderDoesNotMoveTheFile) {
  std::filesystem::current_path(folder_.path());
  std::optional<OutputFile> fresh = OutputFile::Prepare("new");
  folder_.Write("old", "old");
  std::optional<OutputFile> existing = OutputFile::Prepare("old");
  ASSERT_TRUE(fresh && existing);
  std::filesystem::create_directory(File("elsewhere"));
  std::filesystem::current_path(File("elsewhere"));
  EXPECT_TRUE(fresh->Write("data"));
  EXPECT_TRUE(existing->Write("data"));
  EXPECT_EQ(ReadFile(File("new")), "data");
  EXPECT_EQ(ReadFile(File("old")), "data");
  EXPECT_EQ(NumFiles(), 3U);
}

TEST_F(ProviderTest, ChangingTheUmaskDoesNotOpenTheFile) {
  const mode_t before = umask(027);
  std::optional<OutputFile> output = OutputFile::Prepare(File("new"));
  umask(0);
  EXPECT_TRUE(output->Write("data"));
  umask(before);
  EXPECT_EQ(Mode(File("new")), 0640U);
}

TEST_F(ProviderTest, RenamingFoldersDoesNotMoveTheFile) {
  std::filesystem::create_directory(File("folder"));
  std::optional<OutputFile> output = OutputFile::Prepare(File("folder/new"));
  std::filesystem::rename(File("folder"), File("moved"));
  std::filesystem::create_directory(File("folder"));
  EXPECT_TRUE(output->Write("data"));
  EXPECT_EQ(ReadFile(File("moved/new")), "data");
  EXPECT_FALSE(Exists(File("folder/new")));
}

TEST_F(ProviderTest, ALinkThatIsChangedDoesNotLeadElsewhere) {
  folder_.Write("old", "old");
  folder_.Write("victim", "victim");
  ASSERT_EQ(symlink("old", File("link").c_str()), 0);
  std::optional<OutputFile> output = OutputFile::Prepare(File("link"));
  std::filesystem::remove(File("link"));
  ASSERT_EQ(symlink("victim", File("link").c_str()), 0);
  EXPECT_TRUE(output->Write("data"));
  EXPECT_EQ(ReadFile(File("old")), "data");
  EXPECT_EQ(ReadFile(File("victim")), "victim");
}

TEST_F(ProviderTest, DoesNotOverwriteAFileThatAppearedMeanwhile) {
  std::optional<OutputFile> output = OutputFile::Prepare(File("new"));
  folder_.Write("new", "somebody else's");
  EXPECT_EQ(
      ErrorOf([&] { return output->Write("data"); }),
      Printed(
          "cannot write '" + File("new") +
              "': another program has put a file in its place since the command started, and it is"
              " not overwritten",
          "run the command again, or write to another file"));
  EXPECT_EQ(ReadFile(File("new")), "somebody else's");
  EXPECT_EQ(NumFiles(), 1U);
}

TEST_F(ProviderTest, DoesNotFollowALinkThatAppearedMeanwhile) {
  std::optional<OutputFile> output = OutputFile::Prepare(File("new"));
  ASSERT_EQ(symlink("target", File("new").c_str()), 0);
  EXPECT_FALSE(output->Write("data"));
  EXPECT_FALSE(Exists(File("target")));
}

TEST_F(ProviderTest, DoesNotOverwriteAFileThatWasExchangedMeanwhile) {
  std::optional<OutputFile> output = OutputFile::Prepare(folder_.Write("old", "old"));
  std::filesystem::remove(File("old"));
  folder_.Write("old", "new");
  EXPECT_FALSE(output->Write("data"));
  EXPECT_EQ(ReadFile(File("old")), "new");
}

TEST_F(ProviderTest, DoesNotWriteToAFileThatTookThePlaceOfAPipe) {
  ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
  std::optional<OutputFile> output = OutputFile::Prepare(File("pipe"));
  std::filesystem::remove(File("pipe"));
  folder_.Write("pipe", "somebody else's");
  EXPECT_THAT(ErrorOf([&] { return output->Write("data"); }),
              HasSubstr("another file has taken its place"));
  EXPECT_EQ(ReadFile(File("pipe")), "somebody else's");
}

TEST_F(ProviderTest, AFileThatWasRemovedMeanwhileIsCreated) {
  std::optional<OutputFile> output = OutputFile::Prepare(folder_.Write("old", "old"));
  std::filesystem::remove(File("old"));
  EXPECT_TRUE(output->Write("data"));
  EXPECT_EQ(ReadFile(File("old")), "data");
}

TEST_F(ProviderTest, ClosedDescriptorsDoNotSendTheDataIntoOtherFiles) {
  std::vector<std::optional<OutputFile>> outputs;
  folder_.Write("old", "old");
  const int inherited = open(File("inherited").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  outputs.push_back(OutputFile::Prepare(File("new")));
  outputs.push_back(OutputFile::Prepare(File("old")));
  outputs.push_back(OutputFile::Prepare("/dev/null"));
  outputs.push_back(OutputFile::Prepare("/dev/fd/" + std::to_string(inherited)));
  const int log = open(File("log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  for (int descriptor = 3; descriptor < 64; ++descriptor)
    dup2(log, descriptor);
  for (std::optional<OutputFile>& output : outputs) {
    ASSERT_TRUE(output);
    EXPECT_THAT(ErrorOf([&] { return output->Write("data"); }),
                HasSubstr("the provider closed a file that the program needs"));
  }
  EXPECT_EQ(ReadFile(File("log")), "");
  EXPECT_EQ(ReadFile(File("old")), "old");
  outputs.clear();
  for (int descriptor = 3; descriptor < 64; ++descriptor)
    EXPECT_EQ(close(descriptor), 0) << "closed a descriptor of somebody else";
}

TEST_F(ProviderTest, ChildProcessesInheritNoDescriptors) {
  folder_.Write("old", "old");
  const std::optional<OutputFile> fresh = OutputFile::Prepare(File("new"));
  const std::optional<OutputFile> existing = OutputFile::Prepare(File("old"));
  const std::optional<OutputFile> device = OutputFile::Prepare("/dev/null");
  const int inherited = open(File("old").c_str(), O_WRONLY | O_CLOEXEC);
  const std::optional<OutputFile> descriptor =
      OutputFile::Prepare("/dev/fd/" + std::to_string(inherited));
  std::size_t num_ours = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the iterator's own
    const std::string target = std::filesystem::read_symlink(entry, gone).string();
    if (gone || target.compare(0, folder_.path().size(), folder_.path()) != 0)
      continue;
    ++num_ours;
    EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD), FD_CLOEXEC) << target;
  }
  EXPECT_GE(num_ours, 5U);
  close(inherited);
}

}  // namespace
}  // namespace cardcert::cli
