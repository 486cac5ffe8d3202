#include "cli/provider/provider_guard.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <typeinfo>
#include <utility>

#include "cli/exit_status.h"
#include "cli/terminal/console.h"
#include "host/kvutils.h"

namespace cardcert::cli {
namespace {

// The functions of a PKCS#11 function list take no argument of ours, so what they need is global.
struct GuardState {
  CK_FUNCTION_LIST_PTR provider = nullptr;  // the provider's own list
  CK_FUNCTION_LIST guarded = {};            // the list that the module calls
  const char* running = nullptr;            // the function that is being called; null: none
  pid_t process = 0;                        // of the program, not of a child that a provider forked
  std::optional<ProviderFault> fault;
  std::map<CK_SLOT_ID, CK_TOKEN_INFO> tokens;  // as C_GetTokenInfo has described them
  bool use_pin_pad = false;                    // for the next call that takes a PIN
  std::optional<CK_RV> pin_pad_result;
  bool reported_slots = false;  // that the provider claims too many
  void (*abandon_hook)() = nullptr;
};

GuardState& State() {
  static GuardState state;
  return state;
}

// Marks a stretch of code as the provider's, also while an exception leaves it.
class ProviderCode {
 public:
  explicit ProviderCode(const char* function) : outer_(std::exchange(State().running, function)) {}
  ~ProviderCode() {
    if (getpid() != State().process)
      _exit(kExitFailed);
    State().running = outer_;
  }
  ProviderCode(const ProviderCode&) = delete;
  ProviderCode& operator=(const ProviderCode&) = delete;

 private:
  const char* outer_;  // A provider's C_GetInfo may be called while it is loaded.
};

// Must be called within a catch block.
std::string CurrentExceptionText() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (type == nullptr)
      return "an exception of another language";
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(type->name(), nullptr, nullptr, &status), std::free);
    return std::string("an exception of type ") + (status == 0 ? name.get() : type->name());
  }
}

// Must be called within a catch block. Only the first fault counts: later ones are mostly its
// consequences.
void Record(const char* function) {
  if (State().fault)
    return;
  State().fault = ProviderFault{function, CurrentExceptionText()};
  PrintError("the provider threw an exception in " + State().fault->function + ": " +
             Quoted(State().fault->text));
}

template <auto kMember>
struct Guarded;

// kMember is the function's place in the function list.
template <typename... Arguments, CK_RV (*CK_FUNCTION_LIST::*kMember)(Arguments...)>
struct Guarded<kMember> {
  static inline const char* name = nullptr;

  static CK_RV Call(Arguments... arguments) {
    try {
      const ProviderCode code(name);
      return (State().provider->*kMember)(arguments...);
    } catch (const abi::__forced_unwind&) {
      throw;  // The thread is being ended; this may not be stopped.
    } catch (...) {
      Record(name);
      return CKR_GENERAL_ERROR;
    }
  }
};

// Leaves a null entry as it is: the component answers for it.
template <auto kMember>
void Guard(const char* name) {
  Guarded<kMember>::name = name;
  if (State().provider->*kMember != nullptr)
    State().guarded.*kMember = &Guarded<kMember>::Call;
}

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info) {
  const CK_RV rv = Guarded<&CK_FUNCTION_LIST::C_GetTokenInfo>::Call(slot, info);
  if (rv == CKR_OK)
    State().tokens[slot] = *info;
  else
    State().tokens.erase(slot);
  return rv;
}

// The component allocates as many slot numbers as the provider claims to have slots.
CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
  const CK_RV rv = Guarded<&CK_FUNCTION_LIST::C_GetSlotList>::Call(token_present, slots, count);
  if (rv != CKR_OK || slots != nullptr || *count <= kMaxSlots)
    return rv;
  if (!std::exchange(State().reported_slots, true))
    PrintError("the provider reports " + std::to_string(*count) + " slots, more than " +
               std::to_string(kMaxSlots));
  return CKR_GENERAL_ERROR;
}

// Calls C_Login or C_InitPIN, with a null PIN if it is to be entered on the PIN pad.
template <auto kMember, typename... Arguments>
CK_RV CallWithPin(CK_UTF8CHAR_PTR pin, CK_ULONG pin_len, Arguments... arguments) {
  if (!std::exchange(State().use_pin_pad, false))
    return Guarded<kMember>::Call(arguments..., pin, pin_len);
  const CK_RV rv = Guarded<kMember>::Call(arguments..., nullptr, 0);
  State().pin_pad_result = rv;
  return rv;
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG pin_len) {
  return CallWithPin<&CK_FUNCTION_LIST::C_Login>(pin, pin_len, session, user);
}

CK_RV InitPin(CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR pin, CK_ULONG pin_len) {
  return CallWithPin<&CK_FUNCTION_LIST::C_InitPIN>(pin, pin_len, session);
}

CK_FUNCTION_LIST_PTR GuardedList(CK_FUNCTION_LIST_PTR provider) {
  State().provider = provider;
  State().guarded = *provider;
#define GUARD(function) Guard<&CK_FUNCTION_LIST::function>(#function)
  GUARD(C_Finalize);
  GUARD(C_GetSlotList);
  GUARD(C_GetSlotInfo);
  GUARD(C_GetTokenInfo);
  GUARD(C_WaitForSlotEvent);
  GUARD(C_OpenSession);
  GUARD(C_CloseSession);
  GUARD(C_Login);
  GUARD(C_Logout);
  GUARD(C_InitPIN);
  GUARD(C_FindObjectsInit);
  GUARD(C_FindObjects);
  GUARD(C_FindObjectsFinal);
  GUARD(C_GetAttributeValue);
  GUARD(C_SignInit);
  GUARD(C_Sign);
#undef GUARD
  if (provider->C_Login != nullptr)
    State().guarded.C_Login = &Login;
  if (provider->C_InitPIN != nullptr)
    State().guarded.C_InitPIN = &InitPin;
  if (provider->C_GetTokenInfo != nullptr)
    State().guarded.C_GetTokenInfo = &GetTokenInfo;
  if (provider->C_GetSlotList != nullptr)
    State().guarded.C_GetSlotList = &GetSlotList;
  return &State().guarded;
}

// Runs when somebody calls exit(). Handlers that the provider registered have run before: it was
// loaded later.
void AtExit() {
  const GuardState& state = State();
  if (state.running == nullptr || getpid() != state.process)
    return;
  if (state.abandon_hook != nullptr)
    state.abandon_hook();
  PrintError(std::string("the provider ended the program in ") + state.running +
             "; the command is not complete");
  _exit(kExitFailed);
}

}  // namespace

ProviderGuard::ProviderGuard() {
  State();  // Constructed before the handler is registered, so that it is destroyed after it runs.
  State().process = getpid();
  State().fault.reset();
  State().tokens.clear();
  State().use_pin_pad = false;
  State().pin_pad_result.reset();
  State().reported_slots = false;
  static const int registered = std::atexit(AtExit);
  static_cast<void>(registered);
}

ProviderGuard::~ProviderGuard() {
  State().provider = nullptr;
}

int ProviderGuard::Open(const std::string& path, PKCS11Module* module) {
  static constexpr char kLoading[] = "loading";
  try {
    const ProviderCode code(kLoading);
    // A reference of our own, so that dlclose() does not unmap the library. A failure is reported
    // by the component, which loads the same path.
    dlopen(KVUtils::Transcode("UTF-8", "", path).c_str(), RTLD_LAZY | RTLD_NODELETE);
    const int result = module->Open(path);
    if (result != 0)
      return result;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    Record(kLoading);
    return -1;
  }
  module->function_list = GuardedList(module->function_list);
  return 0;
}

std::optional<CK_TOKEN_INFO> ProviderGuard::token(CK_SLOT_ID slot) const {
  const auto found = tokens().find(slot);
  if (found == tokens().end())
    return std::nullopt;
  return found->second;
}

const std::map<CK_SLOT_ID, CK_TOKEN_INFO>& ProviderGuard::tokens() const {
  return State().tokens;
}

void ProviderGuard::ForgetTokens() {
  State().tokens.clear();
}

const std::optional<ProviderFault>& ProviderGuard::fault() {
  return State().fault;
}

void UsePinPad() {
  State().use_pin_pad = true;
}

const std::optional<CK_RV>& PinPadResult() {
  return State().pin_pad_result;
}

void SetAbandonHook(void (*hook)()) {
  State().abandon_hook = hook;
}

}  // namespace cardcert::cli
