// Command and response APDUs (ISO/IEC 7816-4) with short lengths.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "emulated_card/bytes.h"

struct Command {
  std::uint8_t cla = 0;
  std::uint8_t ins = 0;
  std::uint8_t p1 = 0;
  std::uint8_t p2 = 0;
  Bytes data;
  std::size_t max_response_len = 256;  // Le; without Le, the maximum.
};

// Parses the four cases of a short command APDU. Returns nothing for other bytes.
std::optional<Command> ParseCommand(const Bytes& apdu);

// Status words, as ISO/IEC 7816-4 and PIV use them.
constexpr std::uint16_t kOk = 0x9000;
constexpr std::uint16_t kMoreData = 0x6100;       // Low byte: the number of bytes left.
constexpr std::uint16_t kWrongPin = 0x63c0;       // Low digit: the number of tries left.
constexpr std::uint16_t kMemoryFailure = 0x6581;  // The state could not be written.
constexpr std::uint16_t kWrongLength = 0x6700;
constexpr std::uint16_t kSecurityNotSatisfied = 0x6982;
constexpr std::uint16_t kBlocked = 0x6983;
constexpr std::uint16_t kNoMoreData = 0x6985;
constexpr std::uint16_t kWrongData = 0x6a80;
constexpr std::uint16_t kNotFound = 0x6a82;
constexpr std::uint16_t kWrongParameters = 0x6a86;
constexpr std::uint16_t kReferenceNotFound = 0x6a88;
constexpr std::uint16_t kUnknownInstruction = 0x6d00;

struct Response {
  std::uint16_t status = kOk;
  Bytes data;
};

// The layer between the reader and the application on the card: joins the parts of chained commands
// and splits long responses, which the reader fetches with GET RESPONSE.
class ApduLayer {
 public:
  using Application = std::function<Response(const Command&)>;

  explicit ApduLayer(Application application) : application_(std::move(application)) {}

  // Returns the response APDU to a command APDU.
  Bytes Exchange(const Bytes& apdu);

  // Forgets unfinished commands and responses: the card has lost its power.
  void Reset();

 private:
  Bytes NextPart(std::size_t max_len, std::uint16_t status_at_end);

  Application application_;
  Bytes chained_;  // The data of an unfinished chain of commands.
  Bytes pending_;  // The part of the response that has not been sent yet.
  std::uint16_t pending_status_ = kOk;
};
