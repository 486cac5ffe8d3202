// Finds files that a command line uses for two purposes of which one would damage the other.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/command_line/options.h"
#include "cli/files/file_identity.h"
#include "cli/output/output_file.h"

namespace cardcert::cli {

enum class FileRole {
  kModule,          // loaded; its code is read from the file for as long as it is loaded
  kInput,           // --in: read once, to the end, before the provider is loaded
  kPin,             // a PIN file: the same
  kOutput,          // --out: replaced, or written to if it is a pipe or a device
  kStandardOutput,  // written to at its present position
  kLog,             // appended to while the command runs
};

struct UsedFile {
  FileRole role;
  std::string name;  // for messages, such as "--pin-file"
  FileIdentity identity;
  // True for standard output and for a log file that is named as such (/dev/stdout, /dev/fd/1).
  bool is_standard_output = false;
};

struct FileConflict {
  std::string error;
  std::string hint;
};

// Compares all files with each other. Returns the first conflict, if there is one.
std::optional<FileConflict> FindConflict(const std::vector<UsedFile>& files);

// Checks the files of list, present or watch, which write to standard output. Must be called before
// the log is opened. Changes no file. Prints an error and returns false if one of them serves two
// purposes that do not go together, or if the log cannot be written.
bool CheckFiles(const ProviderOptions& provider);

// The same for sign, to be called before a PIN or the input is read.
bool CheckFiles(const ProviderOptions& provider, const SignOptions& sign, const OutputFile& output);

}  // namespace cardcert::cli
