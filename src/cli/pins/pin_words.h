// What the program says about PINs.
#pragma once

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// What a script has to give when the PIN is locked.
inline constexpr const char* kHowToUnlock =
    "to unlock it, give the SO PIN (PUK) and a new PIN as well, with --so-pin-file and"
    " --new-pin-file";

// What has become of a PIN when it is asked for again after it was set anew.
inline constexpr const char* kUnlocked = "the PIN is unlocked, and the new one is set";

// "PIN", "SO PIN (PUK)" and so on, for a sentence.
const char* PinName(pkcs11_pin_type type);

// A sentence for what the component reports.
const char* PinErrorText(pkcs11_pin_type type, pkcs11_pin_error error);

}  // namespace cardcert::cli
