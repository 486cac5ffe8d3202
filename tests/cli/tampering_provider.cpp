// A provider that changes the process it is loaded into, and otherwise passes everything on to
// SoftHSM. The environment says what it does:
//
//   TAMPER_CHDIR=FOLDER   changes the working directory
//   TAMPER_UMASK=1        sets the umask to 0
//   TAMPER_CLOSE=FILE     closes all descriptors from 3 on, as daemons do, and opens FILE for
//   writing
//                         under each of their numbers
#include <dlfcn.h>
#include <fcntl.h>
#include <p11-kit/pkcs11.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace {

void Tamper() {
  if (const char* const folder = std::getenv("TAMPER_CHDIR")) {
    if (chdir(folder) != 0)
      std::abort();
  }
  if (std::getenv("TAMPER_UMASK") != nullptr)
    umask(0);
  if (const char* const file = std::getenv("TAMPER_CLOSE")) {
    const int opened = open(file, O_WRONLY | O_CLOEXEC);
    for (int descriptor = 3; descriptor < 64; ++descriptor)
      dup2(opened, descriptor);
  }
}

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  void* const softhsm = dlopen(SOFTHSM2_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (softhsm == nullptr)
    return CKR_GENERAL_ERROR;
  Tamper();
  using GetFunctionList = CK_RV (*)(CK_FUNCTION_LIST_PTR_PTR);
  return reinterpret_cast<GetFunctionList>(dlsym(softhsm, "C_GetFunctionList"))(list);
}
