// The module's life, and the provider's: loading, unloading, polling for slot events.
#include <dlfcn.h>

#include <utility>

#include "host/kvutils.h"
#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/fixed_text.h"
#include "pkcs11/detail/function_list.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// A provider that is being loaded. Unless it is kept, what has been done is undone: the provider
// finalised if it was initialised, the library closed, the module's handle null.
class Loading {
 public:
  explicit Loading(PKCS11Module& module) : module_(module) {}
  ~Loading() {
    if (kept_)
      return;
    if (initialized_)
      module_.function_list->C_Finalize(nullptr);
    dlclose(module_.library_handle);
    module_.library_handle = nullptr;
  }
  Loading(const Loading&) = delete;
  Loading& operator=(const Loading&) = delete;

  void Initialized() { initialized_ = true; }
  void Keep() { kept_ = true; }

 private:
  PKCS11Module& module_;
  bool initialized_ = false;
  bool kept_ = false;
};

void LogLoaderError(const std::string& path) {
  logfile.Log("Unable to load PKCS#11 module '" + path + "':", 2);
  const char* const text = dlerror();
  std::string rest;
  for (const std::string& line : KVUtils::StringLines(text != nullptr ? text : "", &rest))
    logfile.Log(line, 2);
  if (!rest.empty())
    logfile.Log(rest, 2);
}

void LogInitializationError(const std::string& path, CK_RV rv) {
  logfile.Log("Error initializing PKCS#11 module '" + path + "': " + Decimal(rv), 2);
}

void LogIdentity(const CK_INFO& info) {
  logfile.Log("Manufacturer: " + KVUtils::Strip(FixedText(info.manufacturerID), kWhiteSpace), 3);
  logfile.Log(
      "Library description: " + KVUtils::Strip(FixedText(info.libraryDescription), kWhiteSpace), 3);
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

PKCS11Module::PKCS11Module() {
  SetNameComponents("subject_commonName");
}

PKCS11Module::~PKCS11Module() {
  Close();
}

int PKCS11Module::Open(std::string path) {
  Close();

  // No RTLD_GLOBAL: the symbols of one provider must not reach another.
  library_handle = dlopen(KVUtils::Transcode("UTF-8", "", path).c_str(), RTLD_LAZY);
  if (library_handle == nullptr) {
    detail::LogLoaderError(path);
    return -1;
  }
  detail::Loading loading(*this);

  // POSIX has dlsym answer with an object pointer also for functions.
  const auto get_function_list =
      reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_handle, "C_GetFunctionList"));
  if (get_function_list == nullptr) {
    logfile.Log("Library '" + path + "' does not seem to be a PKCS#11 module", 2);
    return -1;
  }

  CK_RV rv = get_function_list(&function_list);
  if (rv == CKR_OK && function_list == nullptr)
    rv = CKR_GENERAL_ERROR;  // A provider that claims success without a list has failed.
  if (rv == CKR_OK) {
    completed_function_list = *function_list;
    if (detail::FillGaps(&completed_function_list))
      function_list = &completed_function_list;
    rv = function_list->C_Initialize(nullptr);
  }
  if (rv != CKR_OK) {
    detail::LogInitializationError(path, rv);
    return -1;
  }
  loading.Initialized();
  logfile.Log("Loaded PKCS#11 module '" + path + "'", 3);

  CK_INFO info = {};
  rv = function_list->C_GetInfo(&info);
  if (rv == CKR_OK)
    detail::LogIdentity(info);
  else  // A provider that cannot describe itself may still serve.
    logfile.Log("Error getting info from PKCS#11 module '" + path + "': " + detail::Decimal(rv), 2);

  loading.Keep();
  library_path = std::move(path);
  changed = true;
  return 0;
}

void PKCS11Module::Close() {
  if (library_handle != nullptr)
    function_list->C_Finalize(nullptr);
  function_list = nullptr;  // It is the library's.
  if (library_handle != nullptr)
    dlclose(library_handle);
  library_path.clear();
  library_handle = nullptr;
}

const std::string& PKCS11Module::GetLibraryPath() const {
  return library_path;
}

bool PKCS11Module::HasChanged() {
  if (library_handle == nullptr)
    return false;
  if (changed)
    return true;

  const auto slot_event = [this] {
    CK_SLOT_ID slot = 0;
    return function_list->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr) == CKR_OK;
  };
  if (!slot_event()) {
    // Many providers look at their readers only when they are asked for the slots (PKCS#11 2.40,
    // section 5.5, C_GetSlotList), and report what they find there to the next poll.
    CK_ULONG count = 0;
    function_list->C_GetSlotList(CK_FALSE, nullptr, &count);
    if (!slot_event())
      return false;
  }
  while (slot_event()) {
  }
  changed = true;
  return true;
}
