// Compares the answers of two libraries.
#pragma once

#include <string>

#include "answers.h"

// Returns the name of the first answer in `theirs` that differs, or an empty string if none does.
//
// All answers but the subject text must be identical. The libraries write that text differently, so
// its attributes are compared one by one, without escapes, in the order of RFC 4514 or in reverse.
// These differences are ignored:
//   - the separators: "," or ", " between RDNs, "+" or " + " within one;
//   - EMAIL instead of emailAddress (GnuTLS);
//   - a type that the library does not know: GnuTLS writes "2.5.4.97=#0C...", whose hexadecimal
//   digits
//     must end in those of the value, and Mbed TLS writes "??", after which the value must be
//     equal;
//   - "?" for each octet of a character that is not ASCII (Mbed TLS).
std::string Difference(const Answers& ours, const Answers& theirs);
