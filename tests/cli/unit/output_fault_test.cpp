// Output files when system calls fail, are interrupted, or are not supported by the file system.
// The test is linked with --wrap for these calls, so that those of the program come here.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <functional>
#include <map>
#include <vector>

#include "output_file_fixture.h"

namespace {

// What happens to the calls of the program.
struct Calls {
  static constexpr int kForever = 1 << 20;
  struct Fault {
    int error;
    int times;
  };

  std::map<std::string, Fault> faults;
  std::vector<std::string> log;
  std::function<void(const std::string&)> before;
  std::size_t longest_write = SIZE_MAX;
  int create_flags = ~0;  // the flags that all calls that create a file had

  // Returns true, and sets errno, if the call is to fail.
  bool Fails(const std::string& name) {
    log.push_back(name);
    if (before)
      before(name);
    const auto fault = faults.find(name);
    if (fault == faults.end() || fault->second.times == 0)
      return false;
    --fault->second.times;
    errno = fault->second.error;
    return true;
  }
};

Calls* calls = nullptr;  // null: calls pass

std::string NameOfOpen(int flags) {
  if ((flags & O_TMPFILE) == O_TMPFILE)
    return "open unnamed";
  if ((flags & O_CREAT) != 0)
    return "create";
  if ((flags & O_PATH) != 0)
    return "locate";
  return (flags & O_DIRECTORY) != 0 ? "open folder" : "open";
}

}  // namespace

extern "C" {
int __real_openat(int folder, const char* path, int flags, ...);
int __wrap_openat(int folder, const char* path, int flags, ...);
int __wrap___openat_2(int folder, const char* path, int flags);
int __real_linkat(int from_folder, const char* from, int to_folder, const char* to, int flags);
int __wrap_linkat(int from_folder, const char* from, int to_folder, const char* to, int flags);
int __real_renameat(int from_folder, const char* from, int to_folder, const char* to);
int __wrap_renameat(int from_folder, const char* from, int to_folder, const char* to);
int __real_renameat2(int from_folder, const char* from, int to_folder, const char* to,
                     unsigned flags);
int __wrap_renameat2(int from_folder, const char* from, int to_folder, const char* to,
                     unsigned flags);
int __real_unlinkat(int folder, const char* path, int flags);
int __wrap_unlinkat(int folder, const char* path, int flags);
int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor);
ssize_t __real_write(int descriptor, const void* data, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* data, std::size_t size);

int __wrap_openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode =
      (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (calls != nullptr && NameOfOpen(flags) == "create")
    calls->create_flags &= flags;
  if (calls != nullptr && calls->Fails(NameOfOpen(flags)))
    return -1;
  return __real_openat(folder, path, flags, mode);
}

int __wrap___openat_2(int folder, const char* path, int flags) {
  return __wrap_openat(folder, path, flags);
}

int __wrap_linkat(int from_folder, const char* from, int to_folder, const char* to, int flags) {
  if (calls != nullptr && calls->Fails("link"))
    return -1;
  return __real_linkat(from_folder, from, to_folder, to, flags);
}

int __wrap_renameat(int from_folder, const char* from, int to_folder, const char* to) {
  if (calls != nullptr && calls->Fails("rename"))
    return -1;
  return __real_renameat(from_folder, from, to_folder, to);
}

int __wrap_renameat2(int from_folder, const char* from, int to_folder, const char* to,
                     unsigned flags) {
  if (calls != nullptr && calls->Fails("rename without replacing"))
    return -1;
  return __real_renameat2(from_folder, from, to_folder, to, flags);
}

int __wrap_unlinkat(int folder, const char* path, int flags) {
  if (calls != nullptr && calls->Fails("remove"))
    return -1;
  return __real_unlinkat(folder, path, flags);
}

int __wrap_fsync(int descriptor) {
  struct stat info = {};
  fstat(descriptor, &info);
  if (calls != nullptr && calls->Fails(S_ISDIR(info.st_mode) ? "sync folder" : "sync file"))
    return -1;
  return __real_fsync(descriptor);
}

ssize_t __wrap_write(int descriptor, const void* data, std::size_t size) {
  if (calls == nullptr)
    return __real_write(descriptor, data, size);
  if (calls->Fails("write"))
    return -1;
  return __real_write(descriptor, data, std::min(size, calls->longest_write));
}
}  // extern "C"

namespace cardcert::cli {
namespace {

using support::Exists;
using support::ReadFile;
using testing::ElementsAre;
using testing::HasSubstr;

class OutputFaultTest : public OutputFileFixture {
 protected:
  void SetUp() override { calls = &calls_; }
  void TearDown() override { calls = nullptr; }

  void Fail(const std::string& call, int error, int times = Calls::kForever) {
    calls_.faults[call] = {error, times};
  }
  // As on NFS or FAT.
  void WithoutUnnamedFiles() { Fail("open unnamed", EOPNOTSUPP); }

  // The calls from the first that writes to the last.
  std::vector<std::string> CallsFromWriting() const {
    return {std::find(calls_.log.begin(), calls_.log.end(), "write"), calls_.log.end()};
  }

  // Writes `path` in a child process, which ends itself with SIGTERM at the call `when`. Returns
  // true if the signal ended it.
  bool IsTerminatedAt(const std::string& when, const std::string& path) {
    const pid_t child = fork();
    if (child == 0) {
      bool armed = true;
      calls_.before = [&](const std::string& call) {
        if (call == when && std::exchange(armed, false))
          kill(getpid(), SIGTERM);
      };
      _exit(WriteTo(path, "data") ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM;
  }

  Calls calls_;
};

TEST_F(OutputFaultTest, ContinuesAfterInterruptedCalls) {
  for (const char* const call :
       {"locate", "open", "open unnamed", "open folder", "write", "sync file", "sync folder"})
    Fail(call, EINTR, 2);
  EXPECT_TRUE(WriteTo(File("new"), "data"));
  for (const char* const call : {"write", "sync file", "sync folder"})
    Fail(call, EINTR, 2);
  EXPECT_TRUE(WriteTo(File("new"), "more"));
  EXPECT_EQ(ReadFile(File("new")), "more");
  Fail("write", EINTR, 2);
  Fail("open", EINTR, 2);
  EXPECT_TRUE(WriteTo("/dev/null", "data"));
  for (const auto& [call, fault] : calls_.faults)
    EXPECT_EQ(fault.times, 0) << call;
}

TEST_F(OutputFaultTest, ContinuesAfterInterruptedCallsWithTemporaryNames) {
  WithoutUnnamedFiles();
  Fail("create", EINTR, 2);
  EXPECT_TRUE(WriteTo(File("new"), "data"));
  EXPECT_EQ(calls_.faults["create"].times, 0);
}

TEST_F(OutputFaultTest, WritesInAsManyPiecesAsItTakes) {
  calls_.longest_write = 3;
  EXPECT_TRUE(WriteTo(File("new"), "0123456789"));
  EXPECT_EQ(ReadFile(File("new")), "0123456789");
}

TEST_F(OutputFaultTest, StoresTheFileBeforeItsNameAndTheFolderAfterIt) {
  EXPECT_TRUE(WriteTo(File("new"), "data"));
  EXPECT_THAT(CallsFromWriting(),
              ElementsAre("write", "sync file", "link", "open folder", "sync folder"));
  calls_.log.clear();
  EXPECT_TRUE(WriteTo(File("new"), "more"));
  EXPECT_THAT(CallsFromWriting(),
              ElementsAre("write", "sync file", "link", "rename", "open folder", "sync folder"));
  WithoutUnnamedFiles();
  calls_.log.clear();
  EXPECT_TRUE(WriteTo(File("new"), "most"));
  EXPECT_THAT(CallsFromWriting(),
              ElementsAre("write", "sync file", "rename", "open folder", "sync folder"));
}

TEST_F(OutputFaultTest, AFailureLeavesTheOldFileAlone) {
  for (const bool unnamed : {true, false}) {
    for (const char* const call : {"write", "sync file", "rename"}) {
      SCOPED_TRACE(call);
      const std::string path = folder_.Write("old", "old");
      calls_.faults.clear();
      if (!unnamed)
        WithoutUnnamedFiles();
      Fail(call, ENOSPC);
      EXPECT_EQ(ErrorOf([&] { return WriteTo(path, "data"); }),
                Printed("cannot write '" + path + "': No space left on device"));
      EXPECT_EQ(ReadFile(path), "old");
      EXPECT_EQ(NumFiles(), 1U);
    }
  }
}

TEST_F(OutputFaultTest, AFailureLeavesNoNewFile) {
  for (const bool unnamed : {true, false}) {
    for (const char* const call : {"write", "sync file", "link"}) {
      SCOPED_TRACE(call);
      calls_.faults.clear();
      if (!unnamed)
        WithoutUnnamedFiles();
      if (!unnamed && call == std::string("link"))
        Fail("rename without replacing", ENOSPC);
      Fail(call, ENOSPC);
      EXPECT_FALSE(WriteTo(File("new"), "data"));
      EXPECT_EQ(NumFiles(), 0U);
    }
  }
}

TEST_F(OutputFaultTest, SaysThatTheFolderIsNotStored) {
  Fail("sync folder", EIO);
  EXPECT_THAT(ErrorOf([&] { return WriteTo(File("new"), "data"); }),
              HasSubstr("it is complete, but may be lost if the system crashes now"));
  EXPECT_EQ(ReadFile(File("new")), "data");
}

TEST_F(OutputFaultTest, NotEveryFileSystemCanStoreAFolder) {
  Fail("sync folder", EINVAL);
  EXPECT_TRUE(WriteTo(File("new"), "data"));
}

TEST_F(OutputFaultTest, FailuresToCreateAFileShowBeforehand) {
  Fail("open unnamed", ENOSPC);
  EXPECT_FALSE(Prepares(File("new")));
  WithoutUnnamedFiles();
  Fail("create", EROFS);
  EXPECT_FALSE(Prepares(File("new")));
  Fail("locate", EACCES);
  EXPECT_FALSE(Prepares(File("new")));
}

TEST_F(OutputFaultTest, UsesATemporaryNameWhereNoFileCanBeWithoutName) {
  for (const int error : {EOPNOTSUPP, EISDIR, EINVAL}) {
    Fail("open unnamed", error);
    std::optional<OutputFile> output = OutputFile::Prepare(File("new"));
    ASSERT_TRUE(output);
    EXPECT_EQ(NumFiles(), 0U) << "a name while a PIN is typed";
    EXPECT_TRUE(output->Write("data"));
    EXPECT_EQ(ReadFile(File("new")), "data");
    EXPECT_TRUE(WriteTo(File("new"), "more"));
    EXPECT_EQ(ReadFile(File("new")), "more");
    EXPECT_EQ(NumFiles(), 1U);
    std::filesystem::remove(File("new"));
  }
}

TEST_F(OutputFaultTest, TheUmaskIsTheOneBeforehandWithATemporaryName) {
  WithoutUnnamedFiles();
  const mode_t before = umask(027);
  std::optional<OutputFile> output = OutputFile::Prepare(File("new"));
  EXPECT_EQ(umask(0), 027U);
  EXPECT_TRUE(output->Write("data"));
  EXPECT_EQ(umask(before), 0U);
  EXPECT_EQ(Mode(File("new")), 0640U);
}

TEST_F(OutputFaultTest, KeepsPermissionsWithATemporaryName) {
  WithoutUnnamedFiles();
  const std::string path = folder_.Write("old", "old");
  ASSERT_EQ(chmod(path.c_str(), 06664), 0);
  EXPECT_TRUE(WriteTo(path, "data"));
  EXPECT_EQ(Mode(path), 0664U);
}

TEST_F(OutputFaultTest, TriesAnotherNameIfATemporaryOneIsTaken) {
  folder_.Write("old", "old");
  Fail("link", EEXIST, 3);
  EXPECT_TRUE(WriteTo(File("old"), "data"));
  WithoutUnnamedFiles();
  Fail("create", EEXIST, 3);
  EXPECT_TRUE(WriteTo(File("old"), "more"));
  EXPECT_EQ(ReadFile(File("old")), "more");
}

TEST_F(OutputFaultTest, UsesNoNameThatExistsAlready) {
  WithoutUnnamedFiles();
  EXPECT_TRUE(WriteTo(File("new"), "data"));
  EXPECT_EQ(calls_.create_flags & (O_EXCL | O_NOFOLLOW), O_EXCL | O_NOFOLLOW);
}

TEST_F(OutputFaultTest, UsesNoTemporaryNameWhereNoneIsNeeded) {
  EXPECT_TRUE(WriteTo(File("new"), "data"));
  EXPECT_THAT(calls_.log, testing::Not(testing::Contains("create")));
}

TEST_F(OutputFaultTest, WorksWithoutHardLinks) {
  WithoutUnnamedFiles();
  Fail("link", EPERM);
  EXPECT_TRUE(WriteTo(File("one"), "data"));
  Fail("rename without replacing", EINVAL);
  EXPECT_TRUE(WriteTo(File("two"), "data"));
  EXPECT_EQ(ReadFile(File("one")) + ReadFile(File("two")), "datadata");
  EXPECT_EQ(NumFiles(), 2U);
}

TEST_F(OutputFaultTest, DoesNotOverwriteAFileThatAppearsAtTheLastMoment) {
  for (const char* const missing :
       {"nothing", "open unnamed", "link", "rename without replacing"}) {
    SCOPED_TRACE(missing);
    if (missing != std::string("nothing"))
      Fail(missing, missing == std::string("open unnamed") ? EOPNOTSUPP : EINVAL);
    calls_.before = [this](const std::string& call) {
      if (call == "link")
        folder_.Write("new", "somebody else's");
    };
    EXPECT_THAT(ErrorOf([&] { return WriteTo(File("new"), "data"); }),
                HasSubstr("another program has put a file in its place"));
    EXPECT_EQ(ReadFile(File("new")), "somebody else's");
    EXPECT_EQ(NumFiles(), 1U);
    std::filesystem::remove(File("new"));
  }
}

TEST_F(OutputFaultTest, AFileThatIsExchangedWhileItIsPreparedIsRefused) {
  folder_.Write("old", "old");
  calls_.before = [this](const std::string& call) {
    if (call == "open") {
      std::filesystem::remove(File("old"));
      folder_.Write("old", "another");
    }
  };
  EXPECT_FALSE(Prepares(File("old")));
}

TEST_F(OutputFaultTest, ASignalLeavesNoTemporaryName) {
  folder_.Write("old", "old");
  for (const char* const when : {"write", "sync file", "link", "rename"}) {
    SCOPED_TRACE(when);
    EXPECT_TRUE(IsTerminatedAt(when, File("old")));
    EXPECT_EQ(NumFiles(), 1U);
  }
  EXPECT_TRUE(IsTerminatedAt("sync file", File("new")));
  EXPECT_FALSE(Exists(File("new")));
}

TEST_F(OutputFaultTest, ASignalLeavesNoTemporaryNameWhereOneIsNeeded) {
  WithoutUnnamedFiles();
  folder_.Write("old", "old");
  for (const char* const when : {"create", "remove", "write", "sync file", "rename"}) {
    SCOPED_TRACE(when);
    EXPECT_TRUE(IsTerminatedAt(when, File("old")));
    EXPECT_EQ(NumFiles(), 1U);
  }
}

TEST_F(OutputFaultTest, ChildProcessesInheritNoTemporaryFile) {
  for (const bool unnamed : {true, false}) {
    std::size_t num_files = 0;
    if (!unnamed)
      WithoutUnnamedFiles();
    calls_.before = [&](const std::string& call) {
      if (call != "sync file")
        return;
      for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;  // the iterator's own
        const std::string target = std::filesystem::read_symlink(entry, gone).string();
        if (gone || target.compare(0, folder_.path().size(), folder_.path()) != 0)
          continue;
        ++num_files;
        EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD), FD_CLOEXEC) << target;
      }
    };
    EXPECT_TRUE(WriteTo(File("new"), "data"));
    EXPECT_GE(num_files, 1U);
  }
}

}  // namespace
}  // namespace cardcert::cli
