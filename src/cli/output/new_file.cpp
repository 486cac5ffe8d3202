#include "cli/output/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>
#include <utility>

#include "cli/output/signal_blocker.h"
#include "cli/output/write_all.h"

namespace cardcert::cli {

namespace {

constexpr int kMaxAttempts = 100;  // to find a name that is free

// Of a file that gets the attributes of another one, and must not be opened before that.
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kDefaultMode = 0666;

std::string TemporaryName() {
  constexpr char kCharacters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::uniform_int_distribution<std::size_t> index(0, sizeof kCharacters - 2);
  // Not made from the final name, which may already be as long as a name can be.
  std::string name = ".cardcert-";
  for (int i = 0; i < 12; ++i)
    name += kCharacters[index(random)];
  return name;
}

std::string NameOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

bool HasNoUnnamedFiles(int error) {
  // EISDIR comes from kernels and file systems that ignore O_TMPFILE and see a folder opened.
  return error == EOPNOTSUPP || error == EISDIR || error == EINVAL;
}

}  // namespace

NewFile::NewFile(NewFile&& other) noexcept
    : file_(std::move(other.file_)),
      folder_(other.folder_),
      temporary_name_(std::exchange(other.temporary_name_, {})) {}

NewFile& NewFile::operator=(NewFile&& other) noexcept {
  if (this != &other) {
    Discard();
    file_ = std::move(other.file_);
    folder_ = other.folder_;
    temporary_name_ = std::exchange(other.temporary_name_, {});
  }
  return *this;
}

NewFile NewFile::CreateUnnamed(int folder, const FileAttributes* attributes, FileProblem* problem) {
  *problem = {};
  NewFile created;
  created.folder_ = folder;
  created.file_ = HeldFile(RetryOnSignal([&] {
    return openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC,
                  attributes != nullptr ? kPrivateMode : kDefaultMode);
  }));
  if (!created) {
    if (!HasNoUnnamedFiles(errno))
      *problem = FileProblem::OfError(errno);
    return {};
  }
  // Without /proc the file could never get a name.
  if (access(NameOfDescriptor(created.file_.get()).c_str(), F_OK) != 0)
    return {};
  if (attributes != nullptr && !attributes->ApplyTo(created.file_.get(), problem))
    return {};
  return created;
}

NewFile NewFile::CreateNamed(int folder, const FileAttributes* attributes, FileProblem* problem) {
  NewFile created;
  created.folder_ = folder;
  for (int i = 0; i < kMaxAttempts && !created; ++i) {
    const std::string name = TemporaryName();
    created.file_ = HeldFile(RetryOnSignal([&] {
      return openat(folder, name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC,
                    attributes != nullptr ? kPrivateMode : kDefaultMode);
    }));
    if (created)
      created.temporary_name_ = name;
    else if (errno != EEXIST)
      break;
  }
  if (!created) {
    *problem = FileProblem::OfError(errno);
    return {};
  }
  if (attributes != nullptr && !attributes->ApplyTo(created.file_.get(), problem))
    return {};
  return created;
}

bool NewFile::Fill(std::string_view data) {
  const int file = file_.get();
  return WriteAll(file, data) && RetryOnSignal([file] { return fsync(file); }) == 0;
}

bool NewFile::LinkAs(const std::string& name) {
  if (temporary_name_.empty())
    return LinkUnnamed(name);
  if (linkat(folder_, temporary_name_.c_str(), folder_, name.c_str(), 0) == 0) {
    Discard();
    return true;
  }
  // A file system without hard links. Renaming without replacing is not known to all of these.
  bool renamed =
      renameat2(folder_, temporary_name_.c_str(), folder_, name.c_str(), RENAME_NOREPLACE) == 0;
  if (!renamed && (errno == EINVAL || errno == ENOSYS)) {
    if (faccessat(folder_, name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
      errno = EEXIST;
      return false;
    }
    renamed = renameat(folder_, temporary_name_.c_str(), folder_, name.c_str()) == 0;
  }
  if (renamed)
    temporary_name_.clear();
  return renamed;
}

bool NewFile::Replace(const std::string& name) {
  // renameat() needs a name to start from. No signal may end the program before it is gone again.
  const SignalBlocker blocker;
  if (temporary_name_.empty() && !LinkTemporary())
    return false;
  if (renameat(folder_, temporary_name_.c_str(), folder_, name.c_str()) != 0) {
    Discard();
    return false;
  }
  temporary_name_.clear();
  return true;
}

bool NewFile::LinkUnnamed(const std::string& name) {
  const int file = file_.get();
  return file >= 0 && linkat(AT_FDCWD, NameOfDescriptor(file).c_str(), folder_, name.c_str(),
                             AT_SYMLINK_FOLLOW) == 0;
}

bool NewFile::LinkTemporary() {
  for (int i = 0; i < kMaxAttempts; ++i) {
    const std::string name = TemporaryName();
    if (LinkUnnamed(name)) {
      temporary_name_ = name;
      return true;
    }
    if (errno != EEXIST)
      break;
  }
  return false;
}

void NewFile::Discard() {
  const int saved_errno = errno;
  if (!temporary_name_.empty())
    unlinkat(folder_, temporary_name_.c_str(), 0);
  temporary_name_.clear();
  errno = saved_errno;
}

}  // namespace cardcert::cli
