// Names of key usage bits (RFC 5280, section 4.2.1.3).
#pragma once

#include <string>
#include <vector>

namespace cardcert::cli {

// Returns the names of the bits in the order of the standard. -1, which allows every usage, gives
// all nine names.
std::vector<std::string> KeyUsageNames(int key_usage);

// Returns the names separated by commas, "any" for -1 and "none" for 0.
std::string KeyUsageText(int key_usage);

}  // namespace cardcert::cli
