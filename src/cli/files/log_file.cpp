#include "cli/files/log_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "cli/files/shared_folder.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

bool Fail(FileProblem* problem, FileProblem reason) {
  *problem = std::move(reason);
  return false;
}

}  // namespace

LogFile::LogFile(Location location)
    : location_(std::move(location)), identity_(FileIdentity::OfLocation(location_)) {}

std::optional<LogFile> LogFile::Prepare(const std::string& path, FileProblem* problem) {
  std::optional<Location> location = Locate(path, LinkPolicy::kProtected, problem);
  if (!location)
    return std::nullopt;
  LogFile log(std::move(*location));
  if (!log.IsUsable(problem))
    return std::nullopt;
  return log;
}

bool LogFile::IsUsable(FileProblem* problem) const {
  if (WritableDescriptor())
    return true;
  const int folder = location_.folder.get();
  if (!location_.file) {
    return faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) == 0 ||
           Fail(problem, FileProblem::OfErrno());
  }
  const struct stat& info = location_.file.info();
  if (S_ISDIR(info.st_mode))
    return Fail(problem, FileProblem::OfError(EISDIR));
  if (S_ISSOCK(info.st_mode))
    return Fail(problem, {"it is a socket, which cannot be opened as a file", ""});
  if (!location_.is_proc_link && !MayUseExisting(info, location_.folder.info())) {
    return Fail(problem, {"the file belongs to user " + std::to_string(info.st_uid) +
                              ", in a folder where others can create files",
                          "use a file of your own, in another folder"});
  }
  return faccessat(folder, location_.name.c_str(), W_OK, AT_EACCESS) == 0 ||
         Fail(problem, FileProblem::OfErrno());
}

bool LogFile::IsStandardOutput() const {
  return OwnDescriptor(location_) == STDOUT_FILENO;
}

std::optional<int> LogFile::WritableDescriptor() const {
  const std::optional<int> descriptor = OwnDescriptor(location_);
  if (!descriptor)
    return std::nullopt;
  const int flags = fcntl(*descriptor, F_GETFL);
  const bool is_writable = flags >= 0 && (flags & O_PATH) == 0 && (flags & O_ACCMODE) != O_RDONLY;
  return is_writable ? descriptor : std::nullopt;
}

bool LogFile::IsExpected(const HeldFile& file) const {
  if (location_.file)
    return IsSameFile(file.info(), location_.file.info());
  // Another run may have created the same log in the meantime.
  return S_ISREG(file.info().st_mode) && MayUseExisting(file.info(), location_.folder.info());
}

HeldFile LogFile::Open(FileProblem* problem) const {
  const std::optional<int> descriptor = WritableDescriptor();
  const int link_flag = location_.is_proc_link ? 0 : O_NOFOLLOW;
  const int create_flag = location_.file ? 0 : O_CREAT;
  HeldFile file(RetryOnSignal([&] {
    return descriptor ? fcntl(*descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)
                      : openat(location_.folder.get(), location_.name.c_str(),
                               O_WRONLY | O_APPEND | O_NOCTTY | O_CLOEXEC | link_flag | create_flag,
                               S_IRUSR | S_IWUSR);
  }));
  if (!file) {
    *problem = FileProblem::OfErrno();
  } else if (!IsExpected(file)) {
    *problem = {"another file has taken its place since the command started", ""};
    return HeldFile();
  }
  return file;
}

void PrintLogFileProblem(const std::string& path, const FileProblem& problem) {
  PrintError("cannot write the log file " + Quoted(path) + ": " + problem.reason);
  if (!problem.hint.empty())
    PrintHint(problem.hint);
}

}  // namespace cardcert::cli
