// A file that gets its name when it is complete.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "cli/files/held_file.h"
#include "cli/output/file_attributes.h"

namespace cardcert::cli {

// A new file in a folder, which nobody can open by name before it is complete. It disappears with
// the object, unless it was given a name.
//
// The file has no name at all where the file system supports this (O_TMPFILE), so that nothing is
// left of it even if the program is killed. Elsewhere, as on NFS and FAT, it has a temporary name
// that begins with ".cardcert-" until it is complete.
class NewFile {
 public:
  // Holds nothing.
  NewFile() = default;
  // Removes a temporary name.
  ~NewFile() { Discard(); }
  NewFile(NewFile&& other) noexcept;
  NewFile& operator=(NewFile&& other) noexcept;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // Creates the file in `folder`, which must stay open as long as the object exists.
  // With `attributes`, the file gets these. Without, it gets the permissions of any new file: 0666
  // without the bits of the process's umask, or those of the folder's default access control list.
  // Returns an object that holds nothing on failure, and sets `*problem`.
  // CreateUnnamed() leaves the reason empty if the file system cannot have files without a name;
  // use CreateNamed() then.
  static NewFile CreateUnnamed(int folder, const FileAttributes* attributes, FileProblem* problem);
  static NewFile CreateNamed(int folder, const FileAttributes* attributes, FileProblem* problem);

  explicit operator bool() const { return static_cast<bool>(file_); }

  // Writes `data` and waits until the device has stored it. Returns false on failure, and sets
  // errno.
  bool Fill(std::string_view data);

  // Gives the file its name, which must be free. Returns false on failure, and sets errno: EEXIST
  // if the name is taken.
  bool LinkAs(const std::string& name);

  // Gives the file its name in the place of the file that has it now. At every moment the name
  // stands for one of the two, complete. Returns false on failure, and sets errno; the old file is
  // unchanged then.
  bool Replace(const std::string& name);

 private:
  bool LinkUnnamed(const std::string& name);
  bool LinkTemporary();
  void Discard();

  HeldFile file_;
  int folder_ = -1;             // not owned
  std::string temporary_name_;  // empty: none
};

}  // namespace cardcert::cli
