#include "cli/commands/file_roles.h"

#include <unistd.h>

#include <utility>

#include "cli/files/log_file.h"
#include "cli/terminal/console.h"
#include "host/kvutils.h"

namespace cardcert::cli {
namespace {

using Kinds = unsigned;

constexpr Kinds Kind(FileKind kind) {
  return 1U << static_cast<unsigned>(kind);
}

// A missing file is one as soon as it is written to. A folder is refused when it is opened. A
// terminal or /dev/null may have any number of uses at once.
constexpr Kinds kNone = 0;
constexpr Kinds kStored = Kind(FileKind::kRegular) | Kind(FileKind::kDevice);
constexpr Kinds kStoredOrMissing = kStored | Kind(FileKind::kMissing);
constexpr Kinds kPipe = Kind(FileKind::kPipe);

constexpr char kLossHint[] = "use another file for one of them";

struct FileRule {
  FileRole first;
  FileRole second;
  Kinds refused;       // the kinds of files that may not have both roles
  const char* effect;  // what would happen
  const char* hint;
};

// Each pair of roles, in the order of FileRole. What is in no row is impossible: there is one file
// of each role except PIN files, and data go to either --out or standard output.
constexpr FileRule kRules[] = {
    // A library is signed like any other file. Both only read it.
    {FileRole::kModule, FileRole::kInput, kNone, "", ""},
    // A library is no PIN, and a PIN must not be passed to the loader.
    {FileRole::kModule, FileRole::kPin, kStored | kPipe, "the PIN would be loaded as a library",
     ""},
    {FileRole::kModule, FileRole::kOutput, kStoredOrMissing | kPipe,
     "the signature would replace the library", ""},
    {FileRole::kModule, FileRole::kStandardOutput, kStored | kPipe,
     "the output would be written into the library", ""},
    // Code that changes while it is mapped crashes, or does anything else.
    {FileRole::kModule, FileRole::kLog, kStoredOrMissing | kPipe,
     "the log would be written into the library", ""},

    // With --digest none a signature contains the signed data: the public key reveals the PIN. With
    // a digest, anybody can check guesses of a short PIN.
    {FileRole::kInput, FileRole::kPin, kStored,
     "the PIN would be signed, and the signature would give it away", ""},
    // The one that is read first leaves nothing for the other.
    {FileRole::kInput, FileRole::kPin, kPipe, "only one of them can be read from it",
     "write the PIN or the data to a file of its own"},
    // The input has been read by the time the output is written, so that a pipe or a socket in both
    // roles harms nothing: a service answers on the socket that asked.
    {FileRole::kInput, FileRole::kOutput, kStoredOrMissing,
     "the signature would replace the signed data", ""},
    {FileRole::kInput, FileRole::kStandardOutput, kStored,
     "the signature would be written into the signed data", ""},
    // The log is written after the input was hashed: the signature would not match the file.
    {FileRole::kInput, FileRole::kLog, kStoredOrMissing | kPipe,
     "the log would be written into the signed data", ""},

    // Two PINs may be the same: a new PIN that is the old one, or a test card with one for all.
    // A file can be read for each of them, a pipe cannot.
    {FileRole::kPin, FileRole::kPin, kPipe, "only one PIN can be read from it",
     "write each PIN to a file of its own"},
    {FileRole::kPin, FileRole::kOutput, kStoredOrMissing, "the signature would replace the PIN",
     ""},
    {FileRole::kPin, FileRole::kStandardOutput, kStored,
     "the signature would be written into the PIN file", ""},
    {FileRole::kPin, FileRole::kLog, kStoredOrMissing | kPipe,
     "the log would be written into the PIN file", ""},

    {FileRole::kOutput, FileRole::kLog, kStoredOrMissing, "the signature would replace the log",
     ""},
    {FileRole::kOutput, FileRole::kLog, kPipe, "the log would be mixed with the signature", ""},
    // Both write at positions of their own, so each overwrites the other.
    {FileRole::kStandardOutput, FileRole::kLog, kStored | kPipe,
     "the log would be mixed with the data",
     "use another file for the log, or --log-level N, which logs to standard error"},
};

const char* NameOfKind(FileKind kind) {
  switch (kind) {
    case FileKind::kPipe:
      return "pipe";
    case FileKind::kTerminal:
      return "terminal";
    case FileKind::kNull:
    case FileKind::kDevice:
      return "device";
    default:
      return "file";
  }
}

bool IsRefused(const FileRule& rule, const UsedFile& first, const UsedFile& second) {
  if (first.is_standard_output && second.is_standard_output)
    return true;  // Wherever it leads now: a command line must not work on a terminal only.
  return first.identity == second.identity && (rule.refused & Kind(first.identity.kind())) != 0;
}

std::optional<FileConflict> Compare(const UsedFile& first, const UsedFile& second) {
  for (const FileRule& rule : kRules) {
    if (rule.first != first.role || rule.second != second.role || !IsRefused(rule, first, second))
      continue;
    const std::string hint = rule.hint;
    return FileConflict{first.name + " and " + second.name + " are the same " +
                            NameOfKind(first.identity.kind()) + ": " + rule.effect,
                        hint.empty() ? kLossHint : hint};
  }
  return std::nullopt;
}

class FileList {
 public:
  void Add(FileRole role, const std::string& name, std::optional<FileIdentity> identity) {
    // Without an identity the file cannot be opened, which is reported then.
    if (identity)
      files_.push_back({role, name, std::move(*identity), role == FileRole::kStandardOutput});
  }

  void AddModule(const std::string& path) {
    // A name without "/" is searched for in the system's folders when it is loaded.
    if (path.find('/') != std::string::npos) {
      Add(FileRole::kModule, "--module",
          FileIdentity::OfPath(KVUtils::Transcode("UTF-8", "", path)));
    }
  }

  void AddInput(const std::string& path) {
    if (path == "-")
      Add(FileRole::kInput, "standard input", FileIdentity::OfDescriptor(STDIN_FILENO));
    else
      Add(FileRole::kInput, "--in", FileIdentity::OfPath(path));
  }

  void AddPin(const std::string& option, const PinSource& source) {
    if (source.file)
      Add(FileRole::kPin, option, FileIdentity::OfPath(*source.file));
  }

  void AddOutput(const OutputFile& output) {
    if (output.IsStandardOutput())
      Add(FileRole::kStandardOutput, "standard output", output.identity());
    else
      Add(FileRole::kOutput, "--out", output.identity());
  }

  // Prints an error and returns false if the log cannot be written.
  bool AddLog(const std::optional<std::string>& path) {
    if (!path)
      return true;
    FileProblem problem;
    const std::optional<LogFile> log = LogFile::Prepare(*path, &problem);
    if (!log) {
      PrintLogFileProblem(*path, problem);
      return false;
    }
    files_.push_back({FileRole::kLog, "--log-file", log->identity(), log->IsStandardOutput()});
    return true;
  }

  // Prints an error and returns false if there is a conflict.
  bool Check() const {
    const std::optional<FileConflict> conflict = FindConflict(files_);
    if (!conflict)
      return true;
    PrintError(conflict->error);
    PrintHint(conflict->hint);
    return false;
  }

 private:
  std::vector<UsedFile> files_;
};

}  // namespace

std::optional<FileConflict> FindConflict(const std::vector<UsedFile>& files) {
  for (const UsedFile& first : files) {
    for (const UsedFile& second : files) {
      const bool in_order =
          first.role < second.role || (first.role == second.role && &first < &second);
      if (!in_order)
        continue;
      if (std::optional<FileConflict> conflict = Compare(first, second))
        return conflict;
    }
  }
  return std::nullopt;
}

bool CheckFiles(const ProviderOptions& provider) {
  FileList files;
  files.AddModule(provider.module);
  files.Add(FileRole::kStandardOutput, "standard output",
            FileIdentity::OfDescriptor(STDOUT_FILENO));
  return files.AddLog(provider.log_file) && files.Check();
}

bool CheckFiles(const ProviderOptions& provider, const SignOptions& sign,
                const OutputFile& output) {
  FileList files;
  files.AddModule(provider.module);
  files.AddInput(sign.in);
  files.AddPin("--pin-file", sign.pin);
  files.AddPin("--so-pin-file", sign.so_pin);
  files.AddPin("--new-pin-file", sign.new_pin);
  files.AddOutput(output);
  return files.AddLog(provider.log_file) && files.Check();
}

}  // namespace cardcert::cli
