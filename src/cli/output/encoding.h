// How a signature is written.
#pragma once

#include <string>
#include <vector>

namespace cardcert::cli {

// The names that --encoding takes.
const std::vector<std::string>& EncodingNames();

// "raw": the bytes; "hex": one line, lower case; "base64": lines of 64 characters (RFC 7468).
std::string Encode(const std::vector<unsigned char>& bytes, const std::string& encoding);

}  // namespace cardcert::cli
