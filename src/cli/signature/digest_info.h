// The data that the token signs: the hash of a file as RSASSA-PKCS1-v1_5 encodes it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cardcert::cli {

// Returns the names that --digest accepts, "none" among them.
const std::vector<std::string>& DigestNames();

// Reads `path` ("-" is standard input) and returns the bytes for the token to sign: the DER
// encoding of a DigestInfo with the hash (RFC 8017, section 9.2, steps 1 and 2), or for "none" the
// file itself. Prints an error and returns nothing if the file cannot be read or, for "none", is
// too long for any key.
std::optional<std::vector<unsigned char>> ReadDataToSign(const std::string& path,
                                                         const std::string& digest);

}  // namespace cardcert::cli
