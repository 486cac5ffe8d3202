#pragma once

#include <string>

namespace cardcert::cli {

// Why a file cannot be used, in words for the user.
struct FileProblem {
  std::string reason;  // follows "cannot write 'FILE': "
  std::string hint;    // what to do next; may be empty

  // The text of an error number.
  static FileProblem OfError(int error);

  // The text of errno after a call with a HeldFile's descriptor. EBADF means that the provider
  // closed it.
  static FileProblem OfErrno();
};

}  // namespace cardcert::cli
