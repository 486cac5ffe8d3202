// Strings of bytes, and BER-TLV in as far as cards use it (ISO/IEC 7816-4).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes first, const Bytes& second);

// A data object with its tag (one to three bytes, as they are sent) and length.
Bytes Tlv(const Bytes& tag, const Bytes& value);

// The value of the first data object with the one-byte tag `tag` in a sequence of data objects of
// one-byte tags. Nothing: there is none, or a length goes beyond the end.
std::optional<Bytes> FindTlv(const Bytes& sequence, std::uint8_t tag);
