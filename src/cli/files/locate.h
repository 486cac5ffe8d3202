// Finds the folder and the name in which a path ends.
#pragma once

#include <optional>
#include <string>

#include "cli/files/file_problem.h"
#include "cli/files/held_file.h"

namespace cardcert::cli {

// Which symbolic links at the end of a path are followed.
enum class LinkPolicy {
  // Those that any process may follow.
  kFollowAll,
  // Not those that another user may have placed to mislead this one; see shared_folder.h.
  kProtected,
};

// Where a path ends. Its descriptors are opened with O_PATH: they stand for a folder and a file,
// but read and write nothing. They stay valid when the process changes its working directory, or
// when somebody renames the folders that lead to them.
struct Location {
  HeldFile folder;
  std::string name;  // within `folder`: one component, no "/"
  HeldFile file;     // holds nothing if there is no such file
  // True if `folder` and `name` are a link of /proc, such as /proc/self/fd/1. Such a link leads to
  // an open file, which may not have a name anywhere; only the kernel can follow it. `file` is what
  // it leads to.
  bool is_proc_link = false;
};

// Follows the symbolic links at the end of `path`, one by one, up to a name that is not a link. As
// in open(), the links on the way to the last component are followed by the kernel, by its own
// rules. The file does not need to exist; its folder does. Returns nothing on failure, and sets
// `*problem`.
std::optional<Location> Locate(const std::string& path, LinkPolicy policy, FileProblem* problem);

// Returns N if the location is a descriptor of this process: /dev/fd/N, /proc/self/fd/N and the
// like. /dev/stdout leads to descriptor 1.
std::optional<int> OwnDescriptor(const Location& location);

}  // namespace cardcert::cli
