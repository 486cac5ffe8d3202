// What is signed: the hash of a file, in the form that RSASSA-PKCS1-v1_5 wants it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cardcert::cli {

// The names that --digest takes, "none" among them.
const std::vector<std::string>& DigestNames();

// Reads `path` ("-": standard input) and makes the bytes that the token is to sign: the DER
// encoding of a DigestInfo with the hash (RFC 8017, section 9.2, steps 1 and 2), or for "none" the
// file itself. Nothing, with a complaint, when the file cannot be read or, for "none", is too long
// for any key.
std::optional<std::vector<unsigned char>> ReadDataToSign(const std::string& path,
                                                         const std::string& digest);

}  // namespace cardcert::cli
