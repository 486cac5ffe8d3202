#include "cli/pins/pin_words.h"

namespace cardcert::cli {

const char* PinName(pkcs11_pin_type type) {
  switch (type) {
    case PIN_TYPE_USER:
      return "PIN";
    case PIN_TYPE_SO:
      return "SO PIN (PUK)";
    case PIN_TYPE_UNLOCK:
      return "unlocking of the PIN";
    case PIN_TYPE_NEW_USER:
      return "new PIN";
  }
  return "PIN";
}

const char* PinErrorText(pkcs11_pin_type type, pkcs11_pin_error error) {
  // Indexed by type and error.
  constexpr const char* kTexts[4][3] = {
      {"the PIN is wrong", "the token does not accept a PIN of this length or form",
       "the PIN is locked"},
      {"the SO PIN (PUK) is wrong",
       "the token does not accept an SO PIN (PUK) of this length or form",
       "the SO PIN (PUK) is locked; only the issuer of the token can help"},
      {"the PIN cannot be unlocked: an SO PIN (PUK) is wrong",
       "the PIN cannot be unlocked: a PIN does not have the right length or form",
       "the PIN cannot be unlocked: the SO PIN (PUK) is locked"},
      {"the new PIN was refused", "the token does not accept a new PIN of this length or form",
       "the new PIN cannot be set: it is locked"},
  };
  if (type < 0 || type > 3 || error < 0 || error > 2)
    return "the token refused the PIN";
  return kTexts[type][error];
}

}  // namespace cardcert::cli
