// Loading a provider.
#include <dlfcn.h>

#include <utility>

#include "host/kvutils.h"
#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/fixed_text.h"
#include "pkcs11/detail/provider.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// Undoes an Open() that ends before Keep(): finalises the provider if it was initialised, closes
// the library and sets the module's handle to null.
class Loading {
 public:
  explicit Loading(PKCS11Module& module) : module_(module) {}
  ~Loading() {
    if (kept_)
      return;
    if (initialized_)
      Provider(module_.function_list).Finalize();
    dlclose(module_.library_handle);
    module_.library_handle = nullptr;
  }
  Loading(const Loading&) = delete;
  Loading& operator=(const Loading&) = delete;

  void SetInitialized() { initialized_ = true; }
  void Keep() { kept_ = true; }

 private:
  PKCS11Module& module_;
  bool initialized_ = false;
  bool kept_ = false;
};

// Obtains the provider's function list and initialises the provider. Returns the first result that
// is not CKR_OK. Success without a function list counts as a failure.
CK_RV Initialize(CK_C_GetFunctionList get_function_list, CK_FUNCTION_LIST_PTR* functions) {
  const CK_RV rv = get_function_list(functions);
  if (rv != CKR_OK)
    return rv;
  return *functions != nullptr ? Provider(*functions).Initialize() : CKR_GENERAL_ERROR;
}

void LogLoaderError(const std::string& path) {
  logfile.Log("Unable to load PKCS#11 module '" + path + "':", 2);
  const char* const text = dlerror();
  std::string rest;
  for (const std::string& line : KVUtils::StringLines(text != nullptr ? text : "", &rest))
    logfile.Log(line, 2);
  if (!rest.empty())
    logfile.Log(rest, 2);
}

// A provider that cannot describe itself stays loaded.
void LogIdentity(Provider provider, const std::string& path) {
  CK_INFO info = {};
  const CK_RV rv = provider.GetInfo(&info);
  if (rv != CKR_OK) {
    logfile.Log("Error getting info from PKCS#11 module '" + path + "': " + Decimal(rv), 2);
    return;
  }
  logfile.Log("Manufacturer: " + KVUtils::Strip(FixedText(info.manufacturerID), kWhiteSpace), 3);
  logfile.Log(
      "Library description: " + KVUtils::Strip(FixedText(info.libraryDescription), kWhiteSpace), 3);
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

int PKCS11Module::Open(std::string path) {
  Close();

  // Without RTLD_GLOBAL, so that the symbols of one provider do not reach another.
  library_handle = dlopen(KVUtils::Transcode("UTF-8", "", path).c_str(), RTLD_LAZY);
  if (library_handle == nullptr) {
    detail::LogLoaderError(path);
    return -1;
  }
  detail::Loading loading(*this);

  // POSIX requires that a function pointer fits the void* that dlsym() returns.
  const auto get_function_list =
      reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_handle, "C_GetFunctionList"));
  if (get_function_list == nullptr) {
    logfile.Log("Library '" + path + "' does not seem to be a PKCS#11 module", 2);
    return -1;
  }

  const CK_RV rv = detail::Initialize(get_function_list, &function_list);
  if (rv != CKR_OK) {
    logfile.Log("Error initializing PKCS#11 module '" + path + "': " + detail::Decimal(rv), 2);
    return -1;
  }
  loading.SetInitialized();
  logfile.Log("Loaded PKCS#11 module '" + path + "'", 3);
  detail::LogIdentity(detail::Provider(function_list), path);

  loading.Keep();
  library_path = std::move(path);
  changed = true;
  return 0;
}
