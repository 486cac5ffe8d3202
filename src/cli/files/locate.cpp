#include "cli/files/locate.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <climits>

#include "cli/files/shared_folder.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {

namespace {

constexpr int kMaxLinks = 40;  // as in the kernel

// Linux 5.10, mount(2): links of this file system are not followed. Not in every libc's headers.
constexpr long kNoSymbolicLinks = 0x2000;

HeldFile OpenPath(int folder, const std::string& path, int flags) {
  return HeldFile(
      RetryOnSignal([&] { return openat(folder, path.c_str(), O_PATH | O_CLOEXEC | flags); }));
}

std::optional<std::string> ReadLink(int link) {
  char target[PATH_MAX];
  const ssize_t length = readlinkat(link, "", target, sizeof target);
  if (length < 0)
    return std::nullopt;
  if (length == 0 || static_cast<std::size_t>(length) == sizeof target) {
    errno = length == 0 ? ENOENT : ENAMETOOLONG;
    return std::nullopt;
  }
  return std::string(target, static_cast<std::size_t>(length));
}

class Walk {
 public:
  Walk(LinkPolicy policy, FileProblem* problem) : policy_(policy), problem_(problem) {}

  std::optional<Location> Follow(std::string path) {
    for (int num_links = 0; num_links <= kMaxLinks; ++num_links) {
      if (path.empty())
        return Fail(ENOENT);
      if (path.back() == '/')
        return Fail(EISDIR);
      if (!Enter(path))
        return Fail(errno);
      location_.file = OpenPath(location_.folder.get(), location_.name, O_NOFOLLOW);
      if (!location_.file && errno != ENOENT)
        return Fail(errno);
      if (!location_.file || !S_ISLNK(location_.file.info().st_mode))
        return std::move(location_);
      struct statfs file_system = {};
      if (fstatfs(location_.file.get(), &file_system) != 0)
        return Fail(errno);
      if (file_system.f_type == PROC_SUPER_MAGIC)
        return FollowProcLink();
      if ((file_system.f_flags & kNoSymbolicLinks) != 0)
        return Fail(ELOOP);
      if (policy_ == LinkPolicy::kProtected &&
          !MayFollowLink(location_.file.info(), location_.folder.info())) {
        *problem_ = {"the symbolic link " + Quoted(location_.name) + " belongs to user " +
                         std::to_string(location_.file.info().st_uid) +
                         " and is in a folder that everybody can write to, so it is not followed",
                     "use another folder, or the path that the link leads to"};
        return std::nullopt;
      }
      const std::optional<std::string> target = ReadLink(location_.file.get());
      if (!target)
        return Fail(errno);
      path = *target;
    }
    return Fail(ELOOP);
  }

 private:
  // Splits the path into a folder, which is opened, and a name.
  bool Enter(const std::string& path) {
    const std::string::size_type name = path.rfind('/') + 1;  // npos + 1 is 0
    // With the "." a link before it is not the last component, for which the kernel has stricter
    // rules.
    const std::string folder = path.substr(0, name) + ".";
    const int start = location_.folder ? location_.folder.get() : AT_FDCWD;
    HeldFile opened = OpenPath(start, folder, O_DIRECTORY);
    if (!opened)
      return false;
    location_.folder = std::move(opened);
    location_.name = path.substr(name);
    return true;
  }

  std::optional<Location> FollowProcLink() {
    location_.file = OpenPath(location_.folder.get(), location_.name, 0);
    if (!location_.file)
      return Fail(errno);
    location_.is_proc_link = true;
    return std::move(location_);
  }

  std::optional<Location> Fail(int error) {
    *problem_ = FileProblem::OfError(error);
    return std::nullopt;
  }

  LinkPolicy policy_;
  FileProblem* problem_;
  Location location_;
};

}  // namespace

std::optional<Location> Locate(const std::string& path, LinkPolicy policy, FileProblem* problem) {
  return Walk(policy, problem).Follow(path);
}

std::optional<int> OwnDescriptor(const Location& location) {
  if (!location.is_proc_link)
    return std::nullopt;
  for (const char* const folder : {"/proc/self/fd", "/proc/thread-self/fd"}) {
    struct stat own = {};
    if (stat(folder, &own) == 0 && IsSameFile(own, location.folder.info()))
      return std::stoi(location.name);  // There are no other names in that folder.
  }
  return std::nullopt;
}

}  // namespace cardcert::cli
