#pragma once

#include <string_view>

namespace cardcert::cli {

// Writes all of `data`, however many calls of write() that takes, and goes on after signals. Waits
// if the descriptor is non-blocking.
// Returns false on failure, and sets errno; a part may have been written then.
bool WriteAll(int descriptor, std::string_view data);

}  // namespace cardcert::cli
