// A regular file that is written whole or not at all.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>
#include <utility>

#include "cli/files/file_problem.h"
#include "cli/files/locate.h"
#include "cli/output/file_attributes.h"
#include "cli/output/new_file.h"

namespace cardcert::cli {

// Creates a file, or replaces one by a new file with the same owner, permissions and attributes.
class FileReplacement {
 public:
  // Checks that the file at `location`, a regular file or a name that is free, can be written, and
  // creates a new file without a name where the file system has such files. Elsewhere it creates
  // and removes one, so that what stands in the way shows now. Reads the process's umask, which
  // decides about the permissions of a file that does not exist yet. On failure returns nothing and
  // sets `*problem`.
  static std::optional<FileReplacement> Prepare(Location location, FileProblem* problem);

  // Writes `data` to the new file, waits until the device has stored it, and puts the file in its
  // place. Must be called once at most.
  // On failure returns false and sets `*problem`. The old file is unchanged then, unless the
  // problem is that the folder could not be stored. Fails if a file has taken the place since
  // Prepare(). Does not fail if the old file was removed.
  bool Write(std::string_view data, FileProblem* problem);

 private:
  explicit FileReplacement(Location location) : location_(std::move(location)) {}

  bool ReadExisting(FileProblem* problem);
  bool PrepareNew(FileProblem* problem);
  NewFile CreateNamed(FileProblem* problem) const;
  bool NameFile(NewFile* file, FileProblem* problem) const;
  bool SyncFolder(FileProblem* problem) const;

  const FileAttributes* attributes() const { return attributes_ ? &*attributes_ : nullptr; }

  Location location_;
  std::optional<FileAttributes> attributes_;  // of the file that is to be replaced
  NewFile unnamed_;   // holds nothing where the file system has no files without a name
  mode_t umask_ = 0;  // for a file that Write() creates
};

}  // namespace cardcert::cli
