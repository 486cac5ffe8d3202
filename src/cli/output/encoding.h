// Encodings of a signature.
#pragma once

#include <string>
#include <vector>

namespace cardcert::cli {

// Returns the names that --encoding accepts.
const std::vector<std::string>& EncodingNames();

// Encodes the bytes. "raw": unchanged; "hex": one line in lower case; "base64": lines of 64
// characters, as in RFC 7468.
std::string Encode(const std::vector<unsigned char>& bytes, const std::string& encoding);

}  // namespace cardcert::cli
