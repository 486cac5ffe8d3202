// What a new file takes over from the file that it replaces.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "cli/files/file_problem.h"

namespace cardcert::cli {

// The owner, group, permissions, access control list and extended attributes of a file.
//
// A file is replaced so that it is written whole or not at all. The user must not notice this in
// anything else, so the new file gets what the old one would have after being written to in place:
// - Owner, group, permission bits, access control list and extended attributes are kept.
// - The set-user-ID, set-group-ID and sticky bits and file capabilities are not, because writing to
// a
//   file takes them away: they were granted to the old content. The same applies to the hashes and
//   signatures of the content in security.ima and security.evm.
// Whatever cannot be kept is a failure. Dropping an access control list or an owner could take a
// file away from somebody, or give it to everybody.
//
// Two things are lost: other hard links keep the old content, and flags that chattr sets are not
// copied.
class FileAttributes {
 public:
  // Reads the attributes of an open file.
  // Returns nothing on failure, and sets `*problem`.
  static std::optional<FileAttributes> Of(int file, FileProblem* problem);

  // Gives the attributes to a new file that only its owner can open so far. An access control list
  // that the new file got from its folder and the old one did not have is removed.
  // Returns false on failure, and sets `*problem`. The new file must not be
  // used then.
  bool ApplyTo(int new_file, FileProblem* problem) const;

 private:
  struct ExtendedAttribute {
    std::string name;
    std::string value;
  };

  struct stat info_ = {};
  std::vector<ExtendedAttribute> extended_;
};

}  // namespace cardcert::cli
