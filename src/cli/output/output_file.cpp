#include "cli/output/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

std::string FolderOf(const std::string& path) {
  const std::string::size_type slash = path.rfind('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Where links end, be there a file or not; the path itself where that has no name (a pipe).
std::string Resolve(std::string path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  if (real)
    return real.get();
  if (access(path.c_str(), F_OK) == 0)
    return path;
  constexpr int kMostLinks = 40;
  for (int i = 0; i < kMostLinks; ++i) {
    char link[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), link, sizeof link);
    if (length <= 0 || static_cast<std::size_t>(length) == sizeof link)
      break;
    const std::string next(link, static_cast<std::size_t>(length));
    path = next[0] == '/' ? next : FolderOf(path) + "/" + next;
  }
  return path;
}

bool WriteAll(int descriptor, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written = write(descriptor, data.data(), data.size());
    if (written < 0 && errno != EINTR)
      return false;
    if (written > 0)
      data.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// What mkstemp leaves out: the permissions that open() would have given.
mode_t DefaultMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// A new file that disappears unless it is renamed.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string name) : name_(std::move(name)) {
    descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
    exists_ = descriptor_ >= 0;
  }
  ~TemporaryFile() {
    const int saved_errno = errno;
    if (descriptor_ >= 0)
      close(descriptor_);
    if (exists_)
      unlink(name_.c_str());
    errno = saved_errno;
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  bool exists() const { return exists_; }

  bool Fill(std::string_view data, mode_t mode) {
    return WriteAll(descriptor_, data) && fchmod(descriptor_, mode) == 0 &&
           fsync(descriptor_) == 0 && close(std::exchange(descriptor_, -1)) == 0;
  }
  bool RenameTo(const std::string& path) {
    exists_ = std::rename(name_.c_str(), path.c_str()) != 0;
    return !exists_;
  }

 private:
  std::string name_;
  int descriptor_ = -1;
  bool exists_ = false;
};

}  // namespace

OutputFile::OutputFile(std::string path)
    // Where that is a file, its name would lead past what is already in it.
    : path_(path == "/dev/stdout" ? "-" : std::move(path)), target_(Resolve(path_)) {}

bool OutputFile::Check() const {
  struct stat info = {};
  if (path_ == "-")
    return true;
  if (path_.empty()) {  // Its folder would be the current one.
    errno = ENOENT;
    return Fail("cannot write");
  }
  const bool exists = stat(target_.c_str(), &info) == 0;
  if (path_.back() == '/' || (exists && S_ISDIR(info.st_mode))) {
    errno = EISDIR;
    return Fail("cannot write");
  }
  if (exists && access(target_.c_str(), W_OK) != 0)
    return Fail("cannot write");  // The folder would let it be replaced, but it is not meant to be.
  if (exists && !S_ISREG(info.st_mode))
    return true;
  if (!exists && errno != ENOENT)  // A name that is too long, among others.
    return Fail("cannot write");
  return access(FolderOf(target_).c_str(), W_OK | X_OK) == 0 || Fail("cannot write");
}

bool OutputFile::Replaces(const std::string& path) const {
  struct stat ours = {};
  struct stat other = {};
  return path_ != "-" && stat(target_.c_str(), &ours) == 0 && S_ISREG(ours.st_mode) &&
         stat(path.c_str(), &other) == 0 && ours.st_dev == other.st_dev &&
         ours.st_ino == other.st_ino;
}

bool OutputFile::IsTerminal() const {
  return path_ == "-" && isatty(STDOUT_FILENO);
}

bool OutputFile::Write(std::string_view data) const {
  if (path_ == "-")
    return PrintData(data);
  struct stat info = {};
  if (stat(target_.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
    return WriteInPlace(data);
  return Replace(data);
}

bool OutputFile::Replace(std::string_view data) const {
  struct stat info = {};
  const bool existed = stat(target_.c_str(), &info) == 0;
  // Not the target's name and more, which may be too long.
  TemporaryFile file(FolderOf(target_) + "/.cardcert-XXXXXX");
  return (file.exists() && file.Fill(data, existed ? info.st_mode & 07777 : DefaultMode()) &&
          file.RenameTo(target_)) ||
         Fail("cannot write");
}

bool OutputFile::WriteInPlace(std::string_view data) const {
  const int descriptor = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor < 0)
    return Fail("cannot open");
  const bool written = WriteAll(descriptor, data);
  const int error = errno;
  const bool closed = close(descriptor) == 0;
  if (!written)
    errno = error;
  return (written && closed) || Fail("cannot write");
}

bool OutputFile::Fail(const char* what) const {
  PrintError(std::string(what) + " " + Quoted(path_) + ": " + std::strerror(errno));
  return false;
}

}  // namespace cardcert::cli
