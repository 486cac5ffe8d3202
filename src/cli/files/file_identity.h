// Compares paths and descriptors by the file they lead to.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <tuple>

#include "cli/files/locate.h"

namespace cardcert::cli {

// The kinds of files that differ in what using one for two purposes does.
enum class FileKind {
  kMissing,   // no such file yet
  kRegular,   //
  kFolder,    //
  kPipe,      // also a FIFO or a socket: what one reader takes another one does not get
  kTerminal,  // may be read and written at once; two readers share its lines
  kNull,      // /dev/null, /dev/zero, /dev/full, /dev/random: any number of uses at once
  kDevice,    // any other device
};

// Identifies a file by its device and inode, so that hard links, symbolic links, bind mounts and
// descriptors of one file are equal. A device is identified by its device number: two nodes may
// stand for it. A file that does not exist yet is identified by its folder and its name.
//
// Limits: a missing file is not equal to the file that is created there later, and in a folder that
// ignores case two spellings of a missing name differ. /dev/tty differs from the terminal's own
// name. A file that is removed may leave its inode number to another one; compare identities that
// were taken shortly after each other, or keep the file open in between.
class FileIdentity {
 public:
  // The file that opening `path` would use. Symbolic links are followed, up to a missing file, too;
  // "/dev/stdin" is standard input.
  // Returns nothing if opening it would fail: a folder on the way is missing or may not be
  // searched, or links lead in a circle.
  static std::optional<FileIdentity> OfPath(const std::string& path);

  // Returns nothing if the descriptor is not open.
  static std::optional<FileIdentity> OfDescriptor(int descriptor);

  static FileIdentity OfLocation(const Location& location);

  FileKind kind() const { return kind_; }

  friend bool operator==(const FileIdentity& a, const FileIdentity& b) {
    return std::tie(a.kind_, a.device_, a.inode_, a.name_) ==
           std::tie(b.kind_, b.device_, b.inode_, b.name_);
  }
  friend bool operator!=(const FileIdentity& a, const FileIdentity& b) { return !(a == b); }

 private:
  FileIdentity(FileKind kind, dev_t device, ino_t inode, std::string name);
  static FileIdentity OfInfo(const struct stat& info);

  FileKind kind_;
  dev_t device_;      // of a device: the device's own number
  ino_t inode_;       // of a device: 0 or, for a block device, 1
  std::string name_;  // of a missing file; its device and inode are the folder's
};

}  // namespace cardcert::cli
