// Contains what a provider does that a library should not do.
//
// A provider is somebody else's code in our process. It may throw, end the program, or fork and
// return twice. The guard stands between the component and the provider for as long as the provider
// is loaded:
// - An exception does not leave the provider. The call answers CKR_GENERAL_ERROR instead, so that
//   sessions and logins are ended as after every other failure. An error message shows the
//   exception's text, and fault() has it.
// - exit() within a provider call ends the program with kExitFailed and an error message, never
//   with the provider's own status.
// - A child process that a provider forked and that returns from the call ends at once: the program
//   must not go on twice.
// - The library stays mapped until the program ends. Some providers do not survive being unloaded,
//   and an exception's destructor may lie in the library.
// - A provider that reports more than kMaxSlots slots gets an error message, and C_GetSlotList
//   fails. Otherwise memory would run out before the first slot is looked at.
//
// What it cannot contain: _exit(), abort(), signals, and memory errors.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// A million; real providers have a few slots, rarely more than a hundred.
inline constexpr CK_ULONG kMaxSlots = 1'000'000;

// What went wrong within a provider call.
struct ProviderFault {
  std::string function;  // such as "C_Sign", or "loading" for what happened before the first call
  std::string text;      // of the exception; outside text, to be escaped before it is shown
};

// At most one exists at a time. It must be destroyed after the module that it opens.
class ProviderGuard {
 public:
  ProviderGuard();
  ~ProviderGuard();
  ProviderGuard(const ProviderGuard&) = delete;
  ProviderGuard& operator=(const ProviderGuard&) = delete;

  // Opens the provider as PKCS11Module::Open() does, and on success replaces the module's
  // function_list with one that forwards to the provider's. Returns what Open() returns, and -1
  // when the provider threw an exception while it was loaded; no provider is loaded then.
  int Open(const std::string& path, PKCS11Module* module);

  // Returns what C_GetTokenInfo last answered for the slot. The component asks right before it
  // calls back for a PIN.
  std::optional<CK_TOKEN_INFO> token(CK_SLOT_ID slot) const;

  // The same for all slots since the last ForgetTokens().
  const std::map<CK_SLOT_ID, CK_TOKEN_INFO>& tokens() const;
  void ForgetTokens();

  // Returns the first fault since the guard was made, if there was one.
  static const std::optional<ProviderFault>& fault();
};

// To be called in a PIN callback that answers with an empty PIN: the next C_Login or C_InitPIN
// passes a null pointer instead, which makes a token with a protected authentication path ask on
// the reader's PIN pad (PKCS#11 2.40, section 5.6). The component always passes a buffer.
void UsePinPad();

// Returns what the last call after UsePinPad() returned, if there was one.
const std::optional<CK_RV>& PinPadResult();

// Called when a provider ends the program, before the message: puts back what the program has
// changed outside itself, such as the settings of a terminal. May be null.
void SetAbandonHook(void (*hook)());

}  // namespace cardcert::cli
