#include "emulated_card/piv_card.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

namespace {

// SP 800-73-4-1, section 2.2: the RID of NIST, the PIX, the version.
const Bytes kRid = {0xa0, 0x00, 0x00, 0x03, 0x08};
const Bytes kPix = {0x00, 0x00, 0x10, 0x00, 0x01, 0x00};
constexpr std::size_t kAidWithoutVersion = 9;

constexpr std::uint8_t kPinReference = 0x80;
constexpr std::uint8_t kPukReference = 0x81;
constexpr std::size_t kPinFieldLength = 8;
constexpr std::uint8_t kRsa2048 = 0x07;
constexpr std::uint8_t kSignatureKey = 0x9c;
constexpr std::uint8_t kCardAuthenticationKey = 0x9e;

// The data objects with the certificates (SP 800-73-4-1, table 3).
struct CertificateObject {
  std::uint8_t key;
  Bytes tag;
};
const CertificateObject kCertificateObjects[] = {
    {0x9a, {0x5f, 0xc1, 0x05}},
    {kSignatureKey, {0x5f, 0xc1, 0x0a}},
    {0x9d, {0x5f, 0xc1, 0x0b}},
    {kCardAuthenticationKey, {0x5f, 0xc1, 0x01}},
};
const Bytes kDiscoveryTag = {0x7e};
const Bytes kChuidTag = {0x5f, 0xc1, 0x02};

Bytes Discovery() {
  const Bytes pin_of_the_application_only = {0x40, 0x00};
  return Tlv(kDiscoveryTag,
             Tlv({0x4f}, kRid + kPix) + Tlv({0x5f, 0x2f}, pin_of_the_application_only));
}

// The card holder's unique identifier. Its FASC-N says "not a federal card", so that drivers use
// the GUID, which is derived from a certificate to make it different for every card.
Bytes Chuid(const Bytes& certificate_der) {
  const Bytes fasc_n = {0xd4, 0xe7, 0x39, 0xda, 0x73, 0x9c, 0xed, 0x39, 0xce,
                        0x73, 0x9d, 0x83, 0x68, 0x58, 0x21, 0x08, 0x42, 0x10,
                        0x84, 0x21, 0xc8, 0x42, 0x10, 0xc3, 0xeb};
  Bytes guid(SHA256_DIGEST_LENGTH);
  SHA256(certificate_der.data(), certificate_der.size(), guid.data());
  guid.resize(16);
  const Bytes expiry = {'2', '0', '9', '9', '1', '2', '3', '1'};
  return Tlv({0x53}, Tlv({0x30}, fasc_n) + Tlv({0x34}, guid) + Tlv({0x35}, expiry) +
                         Tlv({0x3e}, {}) + Tlv({0xfe}, {}));
}

Bytes CertificateData(const Bytes& der) {
  const Bytes not_compressed = {0x00};
  return Tlv({0x53}, Tlv({0x70}, der) + Tlv({0x71}, not_compressed) + Tlv({0xfe}, {}));
}

// Returns the PIN in a field of eight bytes, or nothing if the field is malformed. SP 800-73-4-2,
// section 2.4.3, requires six to eight digits padded with FF; four and five are accepted, too.
std::optional<std::string> PinField(const Bytes& data, std::size_t at) {
  if (data.size() < at + kPinFieldLength)
    return std::nullopt;
  std::string pin;
  std::size_t i = at;
  for (; i < at + kPinFieldLength && std::isdigit(data[i]); ++i)
    pin += static_cast<char>(data[i]);
  for (; i < at + kPinFieldLength; ++i) {
    if (data[i] != 0xff)
      return std::nullopt;
  }
  if (pin.size() < 4)
    return std::nullopt;
  return pin;
}

std::uint16_t TriesLeft(const Pin& pin) {
  if (pin.blocked())
    return kBlocked;
  return static_cast<std::uint16_t>(kWrongPin | pin.tries_left);
}

}  // namespace

PivCard::PivCard(std::map<std::uint8_t, CardKey> keys, PinState state, std::string state_path)
    : keys_(std::move(keys)), state_(std::move(state)), state_path_(std::move(state_path)) {}

Response PivCard::Execute(const Command& command) {
  const bool right_after_verify = std::exchange(just_verified_, false);
  switch (command.ins) {
    case 0xa4:
      return Select(command);
    case 0xcb:
      return GetData(command);
    case 0x20:
      return Verify(command);
    case 0x24:
      return ChangeReferenceData(command);
    case 0x2c:
      return ResetRetryCounter(command);
    case 0x87:
      return GeneralAuthenticate(command, right_after_verify);
    default:
      return {kUnknownInstruction, {}};
  }
}

void PivCard::Reset() {
  pin_verified_ = puk_verified_ = just_verified_ = false;
}

Response PivCard::Select(const Command& command) const {
  const Bytes aid = kRid + kPix;
  if (command.p1 != 0x04)
    return {kWrongParameters, {}};
  if (command.data.size() < kAidWithoutVersion || command.data.size() > aid.size() ||
      !std::equal(command.data.begin(), command.data.end(), aid.begin()))
    return {kNotFound, {}};
  return {kOk, Tlv({0x61}, Tlv({0x4f}, kPix) + Tlv({0x79}, Tlv({0x4f}, kRid)))};
}

Response PivCard::GetData(const Command& command) const {
  if (command.p1 != 0x3f || command.p2 != 0xff)
    return {kWrongParameters, {}};
  const std::optional<Bytes> tag = FindTlv(command.data, 0x5c);
  if (!tag)
    return {kWrongData, {}};
  if (*tag == kDiscoveryTag)
    return {kOk, Discovery()};
  if (*tag == kChuidTag && !keys_.empty())
    return {kOk, Chuid(keys_.begin()->second.certificate_der())};
  for (const CertificateObject& object : kCertificateObjects) {
    const auto key = keys_.find(object.key);
    if (*tag == object.tag && key != keys_.end())
      return {kOk, CertificateData(key->second.certificate_der())};
  }
  return {kNotFound, {}};
}

Response PivCard::Verify(const Command& command) {
  const bool is_pin = command.p2 == kPinReference;
  if (!is_pin && command.p2 != kPukReference)
    return {kReferenceNotFound, {}};
  Pin& pin = is_pin ? state_.pin : state_.puk;
  bool& verified = is_pin ? pin_verified_ : puk_verified_;

  if (command.p1 == 0xff && command.data.empty()) {
    verified = false;
    return {kOk, {}};
  }
  if (command.p1 != 0x00)
    return {kWrongParameters, {}};
  if (command.data.empty())
    return {verified ? kOk : TriesLeft(pin), {}};
  const std::optional<std::string> offered = PinField(command.data, 0);
  if (!offered || command.data.size() != kPinFieldLength)
    return {kWrongData, {}};
  const std::uint16_t status = Compare(&pin, *offered);
  verified = status == kOk;
  just_verified_ = is_pin && verified;
  return {status, {}};
}

Response PivCard::ChangeReferenceData(const Command& command) {
  if (command.p1 != 0x00)
    return {kWrongParameters, {}};
  if (command.p2 != kPinReference && command.p2 != kPukReference)
    return {kReferenceNotFound, {}};
  Pin& pin = command.p2 == kPinReference ? state_.pin : state_.puk;
  const std::optional<std::string> old_value = PinField(command.data, 0);
  const std::optional<std::string> new_value = PinField(command.data, kPinFieldLength);
  if (!old_value || !new_value || command.data.size() != 2 * kPinFieldLength)
    return {kWrongData, {}};
  const std::uint16_t status = Compare(&pin, *old_value);
  return {status == kOk ? SetPin(&pin, *new_value) : status, {}};
}

Response PivCard::ResetRetryCounter(const Command& command) {
  if (command.p2 != kPinReference)
    return {kReferenceNotFound, {}};
  const bool with_puk = command.p1 == 0x00;
  if (!with_puk && command.p1 != 0x02)
    return {kWrongParameters, {}};
  const std::size_t at = with_puk ? kPinFieldLength : 0;
  Bytes data = command.data;
  if (!with_puk && data.size() < kPinFieldLength)
    data.resize(kPinFieldLength, 0xff);
  const std::optional<std::string> new_value = PinField(data, at);
  if (!new_value || data.size() != at + kPinFieldLength)
    return {kWrongData, {}};
  if (with_puk) {
    const std::optional<std::string> puk = PinField(data, 0);
    if (!puk)
      return {kWrongData, {}};
    const std::uint16_t status = Compare(&state_.puk, *puk);
    if (status != kOk)
      return {status, {}};
  } else if (!puk_verified_) {
    return {kSecurityNotSatisfied, {}};
  }
  pin_verified_ = false;
  return {SetPin(&state_.pin, *new_value), {}};
}

Response PivCard::GeneralAuthenticate(const Command& command, bool right_after_verify) const {
  const auto key = keys_.find(command.p2);
  if (command.p1 != kRsa2048 || key == keys_.end())
    return {kWrongParameters, {}};
  const bool allowed = command.p2 == kCardAuthenticationKey ||
                       (command.p2 == kSignatureKey ? right_after_verify : pin_verified_);
  if (!allowed)
    return {kSecurityNotSatisfied, {}};
  const std::optional<Bytes> request = FindTlv(command.data, 0x7c);
  const std::optional<Bytes> block = request ? FindTlv(*request, 0x81) : std::nullopt;
  const std::optional<Bytes> result = block ? key->second.Apply(*block) : std::nullopt;
  if (!result)
    return {kWrongData, {}};
  return {kOk, Tlv({0x7c}, Tlv({0x82}, *result))};
}

std::uint16_t PivCard::Compare(Pin* pin, const std::string& offered) {
  if (pin->blocked())
    return kBlocked;
  // The counter is written before the answer, so that removing the card does not save a try.
  const bool right = offered == pin->value;
  pin->tries_left = right ? pin->max_tries : pin->tries_left - 1;
  const std::uint16_t written = Write();
  if (written != kOk)
    return written;
  return right ? kOk : TriesLeft(*pin);
}

std::uint16_t PivCard::SetPin(Pin* pin, const std::string& value) {
  pin->value = value;
  pin->tries_left = pin->max_tries;
  return Write();
}

std::uint16_t PivCard::Write() {
  return state_.Save(state_path_) ? kOk : kMemoryFailure;
}
