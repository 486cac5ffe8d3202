// Whether two libraries give the same answers.
#pragma once

#include <string>

#include "answers.h"

// What differs in `theirs`, in a few words; empty when nothing does.
//
// Everything but the subject's text must be equal to the octet. That text has several forms, so its
// attributes are compared one by one, without escapes, in the order of RFC 4514 or in the reverse
// one. These differences are none:
//   - what separates attributes: "," or ", ", and "+" or " + ";
//   - EMAIL for emailAddress (GnuTLS);
//   - a type without a word: "2.5.4.97=#0C..." (GnuTLS), whose hexadecimal digits must end in those
//     of the value, and "??" (Mbed TLS), behind which the value must be the same;
//   - "?" for each octet of a character beyond ASCII (Mbed TLS).
std::string Difference(const Answers& ours, const Answers& theirs);
