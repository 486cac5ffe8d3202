// Where a command writes its result: a file, which is written whole or not at all, or standard
// output, a pipe or a device.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "cli/files/file_identity.h"
#include "cli/files/held_file.h"
#include "cli/files/locate.h"
#include "cli/output/file_replacement.h"

namespace cardcert::cli {

// The life of an output has two steps, since the provider runs between them. Prepare() decides
// where the output goes and opens what is needed. A provider that changes the working directory or
// the umask, or a link on the path, has no influence on the output after that. Write() writes.
//
// What the path may be:
// - A name that is free. The file gets the permissions that any new file would get.
// - A regular file. It is replaced by a new one, which keeps the old one's owner, permissions and
//   attributes (see file_attributes.h). Every symbolic link that led to it is kept.
// - A pipe or a device. It is written to as it is.
// - "-", /dev/stdout, /dev/fd/N or /proc/self/fd/N: a descriptor of this process. What it was
// opened
//   for is written to at its present position, even if that is a regular file, so that what was
//   written to it before is kept.
//
// In a sticky folder to which others can write, such as /tmp, anybody may have put a file or a link
// where a name was expected to be free. Links and files of other users in such folders are refused
// by the rules of Linux's fs.protected_symlinks, fs.protected_regular and fs.protected_fifos,
// whatever these settings are now. They matter most to root, whom no permission stops.
class OutputFile {
 public:
  // Finds out where the output goes, and whether it can be written. Nothing is changed: a mistake
  // shows before anybody is asked for a PIN, and an interrupted command leaves no file behind.
  // Must be called before a provider is loaded.
  // On failure prints an error and returns nothing.
  static std::optional<OutputFile> Prepare(const std::string& path);

  // The file that Write() writes or replaces. For a name that is free, the folder and the name.
  const FileIdentity& identity() const { return identity_; }

  // Returns true if Write() is PrintData().
  bool IsStandardOutput() const { return kind_ == Kind::kStandardOutput; }

  // Returns true if the output appears on a terminal.
  bool IsTerminal() const;

  // Writes the output. Must be called once at most.
  // On failure prints an error and returns false. A file that was there is unchanged then, and a
  // new one does not exist, unless the message says that only its safe storage failed. A pipe, a
  // device or a descriptor may have received a part. Fails if somebody else put a file in this
  // place after Prepare().
  bool Write(std::string_view data);

 private:
  enum class Kind { kStandardOutput, kDescriptor, kPipeOrDevice, kFile };

  OutputFile(std::string path, FileIdentity identity);

  static std::optional<OutputFile> ForStandardOutput(const std::string& path, FileProblem* problem);
  static std::optional<OutputFile> AtLocation(const std::string& path, Location location,
                                              FileProblem* problem);
  bool PrepareFile(Location location, FileProblem* problem);
  bool PrepareDescriptor(int descriptor, FileProblem* problem);
  bool PreparePipeOrDevice(Location location, FileProblem* problem);

  bool WriteDescriptor(std::string_view data, FileProblem* problem);
  bool WritePipeOrDevice(std::string_view data, FileProblem* problem);

  std::string path_;  // as given
  FileIdentity identity_;
  Kind kind_ = Kind::kFile;
  std::optional<FileReplacement> file_;  // kFile
  HeldFile descriptor_;                  // kDescriptor
  Location location_;                    // kPipeOrDevice
};

}  // namespace cardcert::cli
