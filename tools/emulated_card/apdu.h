// Commands and responses (ISO/IEC 7816-4), short lengths only.
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
  std::size_t max_response_len = 256;  // Le; without one, all that fits
};

// The four cases of a short command; nothing for any other string of bytes.
std::optional<Command> ParseCommand(const Bytes& apdu);

// Status words, as ISO/IEC 7816-4 and PIV use them.
constexpr std::uint16_t kOk = 0x9000;
constexpr std::uint16_t kMoreData = 0x6100;       // the low byte says how much
constexpr std::uint16_t kWrongPin = 0x63c0;       // the low digit says how many tries are left
constexpr std::uint16_t kMemoryFailure = 0x6581;  // the state could not be written
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

// What lies between a reader and an application on the card: commands that come in several links
// are put together (command chaining), responses that are too long for one are given out in pieces
// (GET RESPONSE).
class ApduLayer {
 public:
  using Application = std::function<Response(const Command&)>;

  explicit ApduLayer(Application application) : application_(std::move(application)) {}

  // The bytes that answer the bytes of a command.
  Bytes Exchange(const Bytes& apdu);

  // The card has lost its power.
  void Reset();

 private:
  Bytes GiveOut(std::size_t max_len, std::uint16_t status_at_end);

  Application application_;
  Bytes links_;    // the data of a chain, so far
  Bytes pending_;  // what has not been given out yet
  std::uint16_t pending_status_ = kOk;
};
