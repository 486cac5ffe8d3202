#pragma once

#include <cstring>
#include <string>

namespace cardcert::cli {

// Why a file cannot be used, in words for the user.
struct FileProblem {
  std::string reason;  // follows "cannot write 'FILE': "
  std::string hint;    // what to do next; may be empty

  static FileProblem OfError(int error) { return {std::strerror(error), ""}; }
};

}  // namespace cardcert::cli
