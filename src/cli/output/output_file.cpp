#include "cli/output/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "cli/files/shared_folder.h"
#include "cli/output/write_all.h"
#include "cli/terminal/console.h"
#include "cli/terminal/standard_output.h"

namespace cardcert::cli {

namespace {

bool FailWithErrno(FileProblem* problem) {
  *problem = FileProblem::OfErrno();
  return false;
}

void PrintProblem(const std::string& path, const FileProblem& problem) {
  PrintError("cannot write " + Quoted(path) + ": " + problem.reason);
  if (!problem.hint.empty())
    PrintHint(problem.hint);
}

bool IsWritable(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFL);
  return flags >= 0 && (flags & O_PATH) == 0 && (flags & O_ACCMODE) != O_RDONLY;
}

}  // namespace

OutputFile::OutputFile(std::string path, FileIdentity identity)
    : path_(std::move(path)), identity_(std::move(identity)) {}

std::optional<OutputFile> OutputFile::Prepare(const std::string& path) {
  FileProblem problem;
  std::optional<OutputFile> output;
  if (path == "-" || path == "/dev/stdout")
    output = ForStandardOutput(path, &problem);
  else if (std::optional<Location> location = Locate(path, LinkPolicy::kProtected, &problem))
    output = AtLocation(path, std::move(*location), &problem);
  if (!output)
    PrintProblem(path, problem);
  return output;
}

std::optional<OutputFile> OutputFile::ForStandardOutput(const std::string& path,
                                                        FileProblem* problem) {
  const std::optional<FileIdentity> identity = FileIdentity::OfDescriptor(StandardOutput());
  if (!identity) {
    *problem = FileProblem::OfError(errno);
    return std::nullopt;
  }
  OutputFile output(path, *identity);
  output.kind_ = Kind::kStandardOutput;
  return output;
}

std::optional<OutputFile> OutputFile::AtLocation(const std::string& path, Location location,
                                                 FileProblem* problem) {
  const std::optional<int> descriptor = OwnDescriptor(location);
  if (descriptor == STDOUT_FILENO)
    return ForStandardOutput(path, problem);
  OutputFile output(path, FileIdentity::OfLocation(location));
  const bool is_regular = !location.file || S_ISREG(location.file.info().st_mode);
  const bool prepared = descriptor && IsWritable(*descriptor)
                            ? output.PrepareDescriptor(*descriptor, problem)
                        : is_regular ? output.PrepareFile(std::move(location), problem)
                                     : output.PreparePipeOrDevice(std::move(location), problem);
  if (!prepared)
    return std::nullopt;
  return output;
}

bool OutputFile::PrepareFile(Location location, FileProblem* problem) {
  kind_ = Kind::kFile;
  file_ = FileReplacement::Prepare(std::move(location), problem);
  return file_.has_value();
}

bool OutputFile::PrepareDescriptor(int descriptor, FileProblem* problem) {
  kind_ = Kind::kDescriptor;
  descriptor_ = HeldFile(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  return descriptor_ ? true : FailWithErrno(problem);
}

bool OutputFile::PreparePipeOrDevice(Location location, FileProblem* problem) {
  kind_ = Kind::kPipeOrDevice;
  location_ = std::move(location);
  const struct stat& info = location_.file.info();
  if (S_ISDIR(info.st_mode)) {
    *problem = FileProblem::OfError(EISDIR);
    return false;
  }
  if (S_ISSOCK(info.st_mode)) {
    *problem = {"it is a socket, which cannot be opened as a file", ""};
    return false;
  }
  if (!location_.is_proc_link && !MayUseExisting(info, location_.folder.info())) {
    *problem = {"the pipe belongs to user " + std::to_string(info.st_uid) +
                    ", in a folder where others can create files",
                "use a pipe of your own, in another folder"};
    return false;
  }
  if (faccessat(location_.folder.get(), location_.name.c_str(), W_OK, AT_EACCESS) != 0)
    return FailWithErrno(problem);
  return true;
}

bool OutputFile::IsTerminal() const {
  switch (kind_) {
    case Kind::kStandardOutput:
      return isatty(StandardOutput());
    case Kind::kDescriptor:
      return isatty(descriptor_.get());
    case Kind::kPipeOrDevice:
      return identity_.kind() == FileKind::kTerminal;
    case Kind::kFile:
      break;
  }
  return false;
}

bool OutputFile::Write(std::string_view data) {
  if (kind_ == Kind::kStandardOutput)
    return PrintData(data);
  FileProblem problem;
  const bool written = kind_ == Kind::kDescriptor     ? WriteDescriptor(data, &problem)
                       : kind_ == Kind::kPipeOrDevice ? WritePipeOrDevice(data, &problem)
                                                      : file_->Write(data, &problem);
  if (!written)
    PrintProblem(path_, problem);
  return written;
}

bool OutputFile::WriteDescriptor(std::string_view data, FileProblem* problem) {
  return WriteAll(descriptor_.get(), data) || FailWithErrno(problem);
}

bool OutputFile::WritePipeOrDevice(std::string_view data, FileProblem* problem) {
  const int link_flag = location_.is_proc_link ? 0 : O_NOFOLLOW;
  const HeldFile file(RetryOnSignal([&] {
    return openat(location_.folder.get(), location_.name.c_str(),
                  O_WRONLY | O_NOCTTY | O_CLOEXEC | link_flag);
  }));
  if (!file)
    return FailWithErrno(problem);
  if (!IsSameFile(file.info(), location_.file.info())) {
    *problem = {"another file has taken its place since the command started", ""};
    return false;
  }
  return WriteAll(file.get(), data) || FailWithErrno(problem);
}

}  // namespace cardcert::cli
