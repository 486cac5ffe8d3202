// What the program says about PINs.
#pragma once

#include "pkcs11/pkcs11.h"

// "PIN", "SO PIN (PUK)" and so on, for a sentence.
const char* PinName(pkcs11_pin_type type);

// A sentence for what the component reports.
const char* PinErrorText(pkcs11_pin_type type, pkcs11_pin_error error);
