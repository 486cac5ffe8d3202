// Byte strings, and the part of BER-TLV that cards use (ISO/IEC 7816-4).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes first, const Bytes& second);

// Returns the data object with this tag, of one to three encoded bytes, and this value.
Bytes Tlv(const Bytes& tag, const Bytes& value);

// Returns the value of the first data object with the tag `tag` in a sequence of data objects with
// one-byte tags. Returns nothing if there is none or a length exceeds the sequence.
std::optional<Bytes> FindTlv(const Bytes& sequence, std::uint8_t tag);
