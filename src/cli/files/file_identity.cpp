#include "cli/files/file_identity.h"

#include <linux/major.h>
#include <sys/sysmacros.h>

#include <utility>

namespace cardcert::cli {

namespace {

FileKind KindOfCharacterDevice(dev_t device) {
  switch (major(device)) {
    case TTY_MAJOR:
    case TTYAUX_MAJOR:
      return FileKind::kTerminal;
    case MEM_MAJOR:
      switch (minor(device)) {
        case 3:  // /dev/null
        case 5:  // /dev/zero
        case 7:  // /dev/full
        case 8:  // /dev/random
        case 9:  // /dev/urandom
          return FileKind::kNull;
        default:
          return FileKind::kDevice;
      }
    default:
      return major(device) >= UNIX98_PTY_SLAVE_MAJOR &&
                     major(device) < UNIX98_PTY_SLAVE_MAJOR + UNIX98_PTY_MAJOR_COUNT
                 ? FileKind::kTerminal
                 : FileKind::kDevice;
  }
}

}  // namespace

FileIdentity::FileIdentity(FileKind kind, dev_t device, ino_t inode, std::string name)
    : kind_(kind), device_(device), inode_(inode), name_(std::move(name)) {}

FileIdentity FileIdentity::OfInfo(const struct stat& info) {
  if (S_ISCHR(info.st_mode))
    return {KindOfCharacterDevice(info.st_rdev), info.st_rdev, 0, ""};
  if (S_ISBLK(info.st_mode))
    return {FileKind::kDevice, info.st_rdev, 1, ""};
  const FileKind kind = S_ISREG(info.st_mode)   ? FileKind::kRegular
                        : S_ISDIR(info.st_mode) ? FileKind::kFolder
                                                : FileKind::kPipe;
  return {kind, info.st_dev, info.st_ino, ""};
}

std::optional<FileIdentity> FileIdentity::OfPath(const std::string& path) {
  struct stat info = {};
  if (stat(path.c_str(), &info) == 0)
    return OfInfo(info);
  FileProblem problem;
  const std::optional<Location> location = Locate(path, LinkPolicy::kFollowAll, &problem);
  if (!location)
    return std::nullopt;
  return OfLocation(*location);
}

std::optional<FileIdentity> FileIdentity::OfDescriptor(int descriptor) {
  struct stat info = {};
  if (fstat(descriptor, &info) != 0)
    return std::nullopt;
  return OfInfo(info);
}

FileIdentity FileIdentity::OfLocation(const Location& location) {
  if (location.file)
    return OfInfo(location.file.info());
  const struct stat& folder = location.folder.info();
  return {FileKind::kMissing, folder.st_dev, folder.st_ino, location.name};
}

}  // namespace cardcert::cli
