// What the program says about PINs.
#pragma once

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Hints for scripts.
inline constexpr const char* kHowToGivePin = "use --pin-file FILE or --pin env:NAME";
inline constexpr const char* kHowToUnlock =
    "to unlock the PIN, give the SO PIN (PUK) and a new PIN with --so-pin-file and --new-pin-file";

// For tokens that ask for the PIN on the reader.
inline constexpr const char* kHowToAvoidPinPad =
    "--pin-file FILE or --pin env:NAME pass the PIN through this computer instead, if the token"
    " accepts that";
inline constexpr const char* kNoPinPad =
    "the token reports a PIN pad, but the provider does not take the PIN from there";

// For a PIN that has just been unlocked and is asked for again.
inline constexpr const char* kUnlocked = "the PIN is unlocked and the new PIN is set";

// Returns "PIN", "SO PIN (PUK)" and so on, for a sentence.
const char* PinName(pkcs11_pin_type type);

// Returns the message for an error that the component reports.
const char* PinErrorText(pkcs11_pin_type type, pkcs11_pin_error error);

}  // namespace cardcert::cli
