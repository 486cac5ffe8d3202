// Key usage in words (RFC 5280, section 4.2.1.3).
#pragma once

#include <string>
#include <vector>

namespace cardcert::cli {

// The names of the bits in the order of the standard; all nine for -1, where every usage is
// allowed.
std::vector<std::string> KeyUsageNames(int key_usage);

// For people: the names, "any" for a key whose usage is not restricted, "none" for no bits.
std::string KeyUsageText(int key_usage);

}  // namespace cardcert::cli
