#include "cli/component_events.h"

#include <charconv>
#include <string_view>

namespace cardcert::cli {
namespace {

using Kind = ComponentEventKind;

// A line of the log. A name in braces stands for the field that is set from the text there.
struct Line {
  Kind kind;
  int level;
  std::string_view text;
};

constexpr Line kLines[] = {
    {Kind::kLoadFailed, 2, "Unable to load PKCS#11 module '{text}':"},
    {Kind::kNotAProvider, 2, "Library '{text}' does not seem to be a PKCS#11 module"},
    {Kind::kInitializeFailed, 2, "Error initializing PKCS#11 module '{text}': {rv}"},
    {Kind::kGetInfoFailed, 2, "Error getting info from PKCS#11 module '{text}': {rv}"},

    {Kind::kNameSpecificationInvalid, 3, "Unable to parse certificate naming specification"},
    {Kind::kNameSpecificationInvalid, 3, "Malformed certificate naming specification"},
    {Kind::kNameSpecificationInvalid, 3, "Ignoring empty name specification"},
    {Kind::kFilterInvalid, 3, "Unable to decode smartcard filter fields"},
    {Kind::kFilterInvalid, 3, "Smartcard filter does not have 3 fields"},
    {Kind::kFilterInvalid, 3, "Unable to decode smartcard filter issuer attributes"},
    {Kind::kElementInvalid, 3, "Malformed token \"{text}\""},
    {Kind::kNameCategoryUnknown, 3, "Unknown name category \"{text}\""},

    {Kind::kSlotInfoUnreadable, 3, "Unabled to get description of slot {slot}"},
    {Kind::kSlotEntered, 5, "Getting token for slot {slot} on '{text}'"},
    {Kind::kTokenInfoUnreadable, 3, "Unable to get info about token in slot {slot}"},
    {Kind::kTokenFound, 5, "Found token \"{label}\""},
    {Kind::kSessionNotOpened, 3, "Unable to open card session"},
    {Kind::kSearchFailed, 3, "Error enumerating certificates"},
    {Kind::kCertificateUnreadable, 3, "Unable to read certificate"},
    {Kind::kCertificateTooLarge, 3, "Unable to allocate certificate storage"},
    {Kind::kCertificateMalformed, 3, "Error parsing certificate"},
    {Kind::kNoCertificates, 3, "No certificate associated with token \"{label}\""},

    {Kind::kSubjectRead, 5, "Found certificate for \"{text}\""},
    {Kind::kSerialRead, 5, "Serial: {text}"},
    {Kind::kDescribed, 5, "Key length: {number} bits"},
    {Kind::kNameMissing, 3,
     "Unable to generate a presentable name for certificate for token \"{label}\""},
    {Kind::kSubjectUnreadable, 3, "Unable to read subject from certificate for token \"{label}\""},
    {Kind::kCaUnreadable, 3,
     "Unable to determine if certificate for token \"{label}\" is for a CA"},
    {Kind::kSerialUnreadable, 3, "Unable to read serial from certificate for token \"{label}\""},
    {Kind::kKeyUsageUnreadable, 3,
     "Unable to read key usage bits from certificate for token \"{label}\""},
    {Kind::kPublicKeyUnreadable, 3,
     "Unable to read public key from certificate for token \"{label}\""},

    {Kind::kCardAttributeUnknown, 3, "Unknown card attribute \"{attribute}\""},
    {Kind::kPinAttributeUnknown, 3, "Unknown PIN attribute \"{attribute}\""},
    {Kind::kSubjectAttributeUnreadable, 3,
     "Unable to read subject attribute \"{attribute}\" from certificate"},
    {Kind::kIssuerAttributeUnreadable, 3,
     "Unable to read issuer attribute \"{attribute}\" from certificate"},

    {Kind::kSlotSearched, 5, "Getting certificates for slot {slot}"},
    {Kind::kCertificateFound, 5, "Certificate found"},
    {Kind::kCertificateNotFound, 5, "Failed to find the certificate"},
    {Kind::kKeyIdUnreadable, 3, "Unable to read certificate ID"},
    {Kind::kSignTokenInfoUnreadable, 3, "Unable to get info about token"},
    {Kind::kPrivateKeySearched, 5, "Finding private key..."},
    {Kind::kSigned, 5, "Signature operation completed"},
    {Kind::kSignatureCancelled, 3, "Signature operation aborted by user"},
    {Kind::kSignatureFailed, 3, "Signature operation failed ({rv})"},

    {Kind::kPinLocked, 5, "Passphrase locked"},
    {Kind::kPinFinalTry, 5, "Final passphrase attempt for token"},
    {Kind::kPinCountLow, 5, "Previous failed passphrase attempt for token"},
    {Kind::kLoginRefused, 5, "Token login error: {rv}"},
    {Kind::kLoginFailed, 3, "Unexpected token login error: {rv}"},
    {Kind::kNewPinRefused, 5, "Passphrase init error: {rv}"},
    {Kind::kNewPinFailed, 3, "Unexpected passphrase init error: {rv}"},
};

// The component writes slots and return values as signed decimal numbers.
bool SetNumber(std::string_view digits, unsigned long* number) {
  long value = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value);
  *number = static_cast<unsigned long>(value);
  return error == std::errc() && stop == end;
}

bool SetField(std::string_view name, std::string_view value, ComponentEvent* event) {
  if (name == "rv")
    return SetNumber(value, &event->rv);
  if (name == "slot")
    return SetNumber(value, &event->slot);
  if (name == "number")
    return SetNumber(value, &event->number);
  std::string& text = name == "label"       ? event->label
                      : name == "attribute" ? event->attribute
                                            : event->text;
  text = value;
  return true;
}

// Matches `message` against a text with fields. A field ends where the text behind it begins: for
// the last field that is at the end of the message, for others at the first place.
bool Match(std::string_view text, std::string_view message, ComponentEvent* event) {
  for (;;) {
    const std::size_t open = text.find('{');
    const std::string_view literal = text.substr(0, open);
    if (message.substr(0, literal.size()) != literal)
      return false;
    message.remove_prefix(literal.size());
    if (open == std::string_view::npos)
      return message.empty();

    const std::size_t close = text.find('}');
    const std::string_view name = text.substr(open + 1, close - open - 1);
    text.remove_prefix(close + 1);
    const std::size_t next_open = text.find('{');
    const std::string_view behind = text.substr(0, next_open);
    const std::size_t end = next_open != std::string_view::npos ? message.find(behind)
                            : message.size() >= behind.size()   ? message.size() - behind.size()
                                                                : std::string_view::npos;
    if (end == std::string_view::npos || !SetField(name, message.substr(0, end), event))
      return false;
    message.remove_prefix(end);
  }
}

}  // namespace

ComponentEvent ParseComponentEvent(const std::string& message, int level) {
  ComponentEvent event;
  for (const Line& line : kLines) {
    if (line.level != level || !Match(line.text, message, &event))
      continue;
    event.kind = line.kind;
    break;
  }
  event.level = level;
  event.message = message;
  return event;
}

std::vector<ComponentEventKind> KnownEventKinds() {
  std::vector<ComponentEventKind> kinds;
  for (const Line& line : kLines) {
    if (kinds.empty() || kinds.back() != line.kind)
      kinds.push_back(line.kind);
  }
  return kinds;
}

}  // namespace cardcert::cli
