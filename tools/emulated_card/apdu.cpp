#include "emulated_card/apdu.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint8_t kChainingBit = 0x10;
constexpr std::uint8_t kGetResponse = 0xc0;
constexpr std::size_t kMaxChainedData = 4096;  // More than any command of this card needs.

// Le 0 means 256.
std::size_t ResponseLength(std::uint8_t le) {
  return le == 0 ? 256 : le;
}

Bytes WithStatus(Bytes data, std::uint16_t status) {
  data.push_back(static_cast<std::uint8_t>(status >> 8));
  data.push_back(static_cast<std::uint8_t>(status));
  return data;
}

}  // namespace

std::optional<Command> ParseCommand(const Bytes& apdu) {
  if (apdu.size() < 4)
    return std::nullopt;
  Command command;
  command.cla = apdu[0];
  command.ins = apdu[1];
  command.p1 = apdu[2];
  command.p2 = apdu[3];
  if (apdu.size() == 4)
    return command;
  if (apdu.size() == 5) {
    command.max_response_len = ResponseLength(apdu[4]);
    return command;
  }
  const std::size_t data_end = 5 + std::size_t{apdu[4]};
  if (apdu[4] == 0 || apdu.size() < data_end || apdu.size() > data_end + 1)
    return std::nullopt;
  command.data.assign(apdu.begin() + 5, apdu.begin() + static_cast<std::ptrdiff_t>(data_end));
  if (apdu.size() > data_end)
    command.max_response_len = ResponseLength(apdu[data_end]);
  return command;
}

Bytes ApduLayer::Exchange(const Bytes& apdu) {
  std::optional<Command> command = ParseCommand(apdu);
  if (!command) {
    Reset();
    return WithStatus({}, kWrongLength);
  }
  if (command->ins == kGetResponse)
    return pending_.empty() ? WithStatus({}, kNoMoreData)
                            : NextPart(command->max_response_len, pending_status_);

  pending_.clear();
  chained_ = std::move(chained_) + command->data;
  if (chained_.size() > kMaxChainedData) {
    chained_.clear();
    return WithStatus({}, kWrongLength);
  }
  if (command->cla & kChainingBit)
    return WithStatus({}, kOk);
  command->data = std::exchange(chained_, {});

  Response response = application_(*command);
  pending_ = std::move(response.data);
  return NextPart(command->max_response_len, response.status);
}

Bytes ApduLayer::NextPart(std::size_t max_len, std::uint16_t status_at_end) {
  const auto cut =
      pending_.begin() + static_cast<std::ptrdiff_t>(std::min(max_len, pending_.size()));
  Bytes piece(pending_.begin(), cut);
  pending_.erase(pending_.begin(), cut);
  pending_status_ = status_at_end;
  if (pending_.empty())
    return WithStatus(std::move(piece), status_at_end);
  const std::size_t rest = pending_.size() < 256 ? pending_.size() : 0;  // 0 means 256 or more.
  return WithStatus(std::move(piece), static_cast<std::uint16_t>(kMoreData | rest));
}

void ApduLayer::Reset() {
  chained_.clear();
  pending_.clear();
}
