#include "cli/output/file_replacement.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "cli/files/shared_folder.h"
#include "cli/output/signal_blocker.h"

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

bool FailWithErrno(FileProblem* problem) {
  *problem = FileProblem::OfErrno();
  return false;
}

}  // namespace

std::optional<FileReplacement> FileReplacement::Prepare(Location location, FileProblem* problem) {
  FileReplacement replacement(std::move(location));
  if ((replacement.location_.file && !replacement.ReadExisting(problem)) ||
      !replacement.PrepareNew(problem))
    return std::nullopt;
  return replacement;
}

bool FileReplacement::ReadExisting(FileProblem* problem) {
  const struct stat& info = location_.file.info();
  if (location_.is_proc_link) {
    *problem = {
        "it leads to a file that another program or descriptor has open, and has no name to"
        " replace",
        "use the path of the file itself"};
    return false;
  }
  if (!MayUseExisting(info, location_.folder.info())) {
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
  return attributes_.has_value();
}

bool FileReplacement::PrepareNew(FileProblem* problem) {
  umask_ = ReadUmask();
  const int folder = location_.folder.get();
  unnamed_ = NewFile::CreateUnnamed(folder, attributes(), problem);
  if (unnamed_)
    return true;
  if (!problem->reason.empty())
    return false;
  // Only a trial: a file with a name must not lie around while a PIN is typed.
  const SignalBlocker blocker;
  return static_cast<bool>(CreateNamed(problem));
}

NewFile FileReplacement::CreateNamed(FileProblem* problem) const {
  const UmaskScope scope(umask_);
  return NewFile::CreateNamed(location_.folder.get(), attributes(), problem);
}

bool FileReplacement::Write(std::string_view data, FileProblem* problem) {
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
  return NameFile(&file, problem) && SyncFolder(problem);
}

bool FileReplacement::NameFile(NewFile* file, FileProblem* problem) const {
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

bool FileReplacement::SyncFolder(FileProblem* problem) const {
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
