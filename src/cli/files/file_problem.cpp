#include "cli/files/file_problem.h"

#include <cerrno>
#include <cstring>

namespace cardcert::cli {

FileProblem FileProblem::OfError(int error) {
  return {std::strerror(error), ""};
}

FileProblem FileProblem::OfErrno() {
  if (errno != EBADF)
    return OfError(errno);
  return {"the provider closed a file that the program needs", ""};
}

}  // namespace cardcert::cli
