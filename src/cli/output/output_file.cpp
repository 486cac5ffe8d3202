#include "cli/output/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "cli/output/signal_blocker.h"
#include "cli/output/write_all.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {

namespace {

// Sets the process's umask for as long as it exists.
class UmaskScope {
 public:
  explicit UmaskScope(mode_t mask) : before_(umask(mask)) {}
  ~UmaskScope() { umask(before_); }
  UmaskScope(const UmaskScope&) = delete;
  UmaskScope& operator=(const UmaskScope&) = delete;

  mode_t before() const { return before_; }

 private:
  mode_t before_;
};

mode_t ReadUmask() {
  constexpr mode_t kNothingForOthers = 077;  // for a file that another thread creates just now
  return UmaskScope(kNothingForOthers).before();
}

bool Fail(int error, FileProblem* problem) {
  *problem = FileProblem::OfError(error);
  return false;
}

// Fails with errno. A descriptor that is not what it was can only be the provider's work.
bool FailWithErrno(FileProblem* problem) {
  if (errno != EBADF)
    return Fail(errno, problem);
  *problem = {"the provider closed a file that the program needs", ""};
  return false;
}

void PrintProblem(const std::string& path, const FileProblem& problem) {
  PrintError("cannot write " + Quoted(path) + ": " + problem.reason);
  if (!problem.hint.empty())
    PrintHint(problem.hint);
}

// Returns N for a location that is this process's /proc/self/fd/N.
std::optional<int> OwnDescriptor(const Location& location) {
  struct stat own = {};
  if (!location.is_proc_link || stat("/proc/self/fd", &own) != 0 ||
      !IsSameFile(own, location.folder.info()))
    return std::nullopt;
  int number = -1;
  const char* const end = location.name.data() + location.name.size();
  const auto [parsed_end, error] = std::from_chars(location.name.data(), end, number);
  if (error != std::errc() || parsed_end != end)
    return std::nullopt;
  return number;
}

bool IsWritable(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFL);
  return flags >= 0 && (flags & O_PATH) == 0 && (flags & O_ACCMODE) != O_RDONLY;
}

// The rule of may_create_in_sticky() in Linux's fs/namei.c, with fs.protected_regular and
// fs.protected_fifos at 2: in a sticky folder to which others can write, an existing file is used
// only if it belongs to this process's user or to the owner of the folder.
bool IsPlantedFile(const struct stat& file, const struct stat& folder) {
  const bool others_can_create =
      (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return others_can_create && (S_ISREG(file.st_mode) || S_ISFIFO(file.st_mode)) &&
         file.st_uid != geteuid() && file.st_uid != folder.st_uid;
}

}  // namespace

OutputFile::OutputFile(std::string path, FileIdentity identity)
    : path_(std::move(path)), identity_(std::move(identity)) {}

std::optional<OutputFile> OutputFile::Prepare(const std::string& path) {
  if (path == "-" || path == "/dev/stdout")
    return StandardOutput(path);
  FileProblem problem;
  std::optional<OutputFile> output;
  if (std::optional<Location> location = Locate(path, LinkPolicy::kProtected, &problem))
    output = PrepareLocation(path, std::move(*location), &problem);
  if (!output)
    PrintProblem(path, problem);
  return output;
}

std::optional<OutputFile> OutputFile::StandardOutput(const std::string& path) {
  const std::optional<FileIdentity> identity = FileIdentity::OfDescriptor(STDOUT_FILENO);
  if (!identity) {
    PrintProblem(path, FileProblem::OfError(errno));
    return std::nullopt;
  }
  OutputFile output(path, *identity);
  output.kind_ = Kind::kStandardOutput;
  return output;
}

std::optional<OutputFile> OutputFile::PrepareLocation(const std::string& path, Location location,
                                                      FileProblem* problem) {
  const std::optional<int> descriptor = OwnDescriptor(location);
  if (descriptor == STDOUT_FILENO)
    return StandardOutput(path);
  OutputFile output(path, FileIdentity::OfLocation(location));
  output.location_ = std::move(location);
  const HeldFile& file = output.location_.file;
  const bool prepared = descriptor && IsWritable(*descriptor)
                            ? output.PrepareDescriptor(*descriptor, problem)
                        : !file                        ? output.PrepareNew(problem)
                        : S_ISREG(file.info().st_mode) ? output.PrepareExisting(problem)
                                                       : output.PreparePipeOrDevice(problem);
  if (!prepared)
    return std::nullopt;
  return output;
}

bool OutputFile::PrepareDescriptor(int descriptor, FileProblem* problem) {
  kind_ = Kind::kDescriptor;
  descriptor_ = HeldFile(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  return descriptor_ ? true : FailWithErrno(problem);
}

bool OutputFile::PreparePipeOrDevice(FileProblem* problem) {
  kind_ = Kind::kPipeOrDevice;
  const struct stat& info = location_.file.info();
  if (S_ISDIR(info.st_mode))
    return Fail(EISDIR, problem);
  if (S_ISSOCK(info.st_mode)) {
    *problem = {"it is a socket, which cannot be opened as a file", ""};
    return false;
  }
  if (!location_.is_proc_link && IsPlantedFile(info, location_.folder.info())) {
    *problem = {"the pipe belongs to user " + std::to_string(info.st_uid) +
                    ", in a folder where others can create files",
                "use a pipe of your own, in another folder"};
    return false;
  }
  if (faccessat(location_.folder.get(), location_.name.c_str(), W_OK, AT_EACCESS) != 0)
    return FailWithErrno(problem);
  return true;
}

bool OutputFile::PrepareExisting(FileProblem* problem) {
  const struct stat& info = location_.file.info();
  if (location_.is_proc_link) {
    *problem = {
        "it leads to a file that another program or descriptor has open, and has no name to"
        " replace",
        "use the path of the file itself"};
    return false;
  }
  if (IsPlantedFile(info, location_.folder.info())) {
    *problem = {"the file belongs to user " + std::to_string(info.st_uid) +
                    ", in a folder where others can create files",
                "remove the file first, or write to another one"};
    return false;
  }
  // The folder would let a read-only file be replaced, but its owner does not want it changed.
  const HeldFile file(RetryOnSignal([this] {
    return openat(location_.folder.get(), location_.name.c_str(),
                  O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  if (!file)
    return FailWithErrno(problem);
  if (!IsSameFile(file.info(), info)) {
    *problem = {"it is being changed by another program", "try again"};
    return false;
  }
  attributes_ = FileAttributes::Of(file.get(), problem);
  return attributes_ && PrepareNew(problem);
}

bool OutputFile::PrepareNew(FileProblem* problem) {
  kind_ = Kind::kFile;
  umask_ = ReadUmask();
  const int folder = location_.folder.get();
  unnamed_ = NewFile::CreateUnnamed(folder, attributes_ ? &*attributes_ : nullptr, problem);
  if (unnamed_)
    return true;
  if (!problem->reason.empty())
    return false;
  // Only a trial: a file with a name must not lie around while a PIN is typed.
  const SignalBlocker blocker;
  return static_cast<bool>(CreateNamed(problem));
}

NewFile OutputFile::CreateNamed(FileProblem* problem) const {
  const UmaskScope scope(umask_);
  return NewFile::CreateNamed(location_.folder.get(), attributes_ ? &*attributes_ : nullptr,
                              problem);
}

bool OutputFile::Replaces(const std::string& path) const {
  const FileKind kind = identity_.kind();
  if (kind_ == Kind::kStandardOutput || (kind != FileKind::kRegular && kind != FileKind::kMissing))
    return false;
  const std::optional<FileIdentity> other =
      path == "-" ? FileIdentity::OfDescriptor(STDIN_FILENO) : FileIdentity::OfPath(path);
  return other == identity_;
}

bool OutputFile::IsTerminal() const {
  switch (kind_) {
    case Kind::kStandardOutput:
      return isatty(STDOUT_FILENO);
    case Kind::kDescriptor:
      return isatty(descriptor_.get());
    case Kind::kPipeOrDevice:
      return identity_.kind() == FileKind::kTerminal;
    case Kind::kFile:
      break;
  }
  return false;
}

bool OutputFile::Write(std::string_view data) {
  if (kind_ == Kind::kStandardOutput)
    return PrintData(data);
  FileProblem problem;
  const bool written = kind_ == Kind::kDescriptor     ? WriteDescriptor(data, &problem)
                       : kind_ == Kind::kPipeOrDevice ? WritePipeOrDevice(data, &problem)
                                                      : WriteFile(data, &problem);
  if (!written)
    PrintProblem(path_, problem);
  return written;
}

bool OutputFile::WriteDescriptor(std::string_view data, FileProblem* problem) {
  return WriteAll(descriptor_.get(), data) || FailWithErrno(problem);
}

bool OutputFile::WritePipeOrDevice(std::string_view data, FileProblem* problem) {
  const int link_flag = location_.is_proc_link ? 0 : O_NOFOLLOW;
  const HeldFile file(RetryOnSignal([&] {
    return openat(location_.folder.get(), location_.name.c_str(),
                  O_WRONLY | O_NOCTTY | O_CLOEXEC | link_flag);
  }));
  if (!file)
    return FailWithErrno(problem);
  if (!IsSameFile(file.info(), location_.file.info())) {
    *problem = {"another file has taken its place since the command started", ""};
    return false;
  }
  return WriteAll(file.get(), data) || FailWithErrno(problem);
}

bool OutputFile::WriteFile(std::string_view data, FileProblem* problem) {
  // Everything from the temporary name to the final one is quick: no PIN, no card.
  std::optional<SignalBlocker> blocker;
  NewFile file = std::move(unnamed_);
  if (!file) {
    blocker.emplace();
    file = CreateNamed(problem);
    if (!file)
      return false;
  }
  if (!file.Fill(data))
    return FailWithErrno(problem);
  return NameNewFile(&file, problem) && SyncFolder(problem);
}

bool OutputFile::NameNewFile(NewFile* file, FileProblem* problem) const {
  const int folder = location_.folder.get();
  struct stat now = {};
  const bool exists = fstatat(folder, location_.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno != ENOENT)
    return FailWithErrno(problem);
  const bool is_as_prepared = !exists || (location_.file && IsSameFile(now, location_.file.info()));
  if (is_as_prepared && (exists ? file->Replace(location_.name) : file->LinkAs(location_.name)))
    return true;
  if (is_as_prepared && errno != EEXIST)
    return FailWithErrno(problem);
  *problem = {
      "another program has put a file in its place since the command started, and it is not"
      " overwritten",
      "run the command again, or write to another file"};
  return false;
}

bool OutputFile::SyncFolder(FileProblem* problem) const {
  const HeldFile folder(RetryOnSignal(
      [this] { return openat(location_.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  // One may write to a folder without being allowed to read it. Not every file system can sync one.
  if ((!folder && errno == EACCES) ||
      (folder && (RetryOnSignal([&] { return fsync(folder.get()); }) == 0 || errno == EINVAL)))
    return true;
  *problem = {"it is complete, but may be lost if the system crashes now: " +
                  FileProblem::OfError(errno).reason,
              ""};
  return false;
}

}  // namespace cardcert::cli
