// The file of --log-file.
#pragma once

#include <optional>
#include <string>

#include "cli/files/file_identity.h"
#include "cli/files/file_problem.h"
#include "cli/files/held_file.h"
#include "cli/files/locate.h"

namespace cardcert::cli {

// In sticky folders to which others can write, links and files of other users are refused, as for
// output files; see shared_folder.h.
class LogFile {
 public:
  // Finds the file and checks that the log can be added to it. Changes nothing. On failure returns
  // nothing and sets `*problem`.
  static std::optional<LogFile> Prepare(const std::string& path, FileProblem* problem);

  // The file that the log is added to. For a name that is free, the folder and the name.
  const FileIdentity& identity() const { return identity_; }

  // Returns true if the path leads to standard output: /dev/stdout, /dev/fd/1 and the like.
  bool IsStandardOutput() const;

  // Opens the file for appending, and creates it for its owner only. A path such as /dev/stderr or
  // /dev/fd/N continues at the descriptor's position. On failure returns nothing held and sets
  // `*problem`. Fails if somebody else put a file in this place after Prepare().
  HeldFile Open(FileProblem* problem) const;

 private:
  explicit LogFile(Location location);
  bool IsUsable(FileProblem* problem) const;
  // The descriptor of this process that the path names, if it can be written to.
  std::optional<int> WritableDescriptor() const;
  bool IsExpected(const HeldFile& file) const;

  Location location_;
  FileIdentity identity_;
};

// Prints that the log file cannot be written, and a hint if there is one.
void PrintLogFileProblem(const std::string& path, const FileProblem& problem);

}  // namespace cardcert::cli
