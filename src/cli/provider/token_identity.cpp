#include "cli/provider/token_identity.h"

#include <algorithm>
#include <iterator>

#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

// PKCS#11 pads with spaces, some providers with zeros.
template <std::size_t kWidth>
std::string Unpadded(const CK_UTF8CHAR (&field)[kWidth]) {
  std::string text(field, std::find(field, field + kWidth, '\0'));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

struct TokenKind {
  const char* manufacturer;
  const char* model;
};

// The tokens that docs/providers.md shows to set CKF_SO_PIN_COUNT_LOW after a wrong SO PIN.
constexpr TokenKind kReportingKinds[] = {
    {"SoftHSM project", "SoftHSM v2"},
    {"IBM", "Soft"},
};

}  // namespace

TokenIdentity IdentityOf(const CK_TOKEN_INFO& info) {
  return {Unpadded(info.label), Unpadded(info.serialNumber), Unpadded(info.manufacturerID),
          Unpadded(info.model)};
}

std::string Difference(const TokenIdentity& listed, const TokenIdentity& now) {
  struct Field {
    const char* name;
    const std::string& listed;
    const std::string& now;
  };
  std::string difference;
  for (const Field& field : {Field{"label", listed.label, now.label},
                             Field{"serial number", listed.serial_number, now.serial_number},
                             Field{"manufacturer", listed.manufacturer, now.manufacturer},
                             Field{"model", listed.model, now.model}}) {
    if (field.listed == field.now)
      continue;
    difference += difference.empty() ? "" : "; ";
    difference += std::string("its ") + field.name + " was " + QuotedLine(field.listed) +
                  " and is " + QuotedLine(field.now);
  }
  return difference;
}

bool ReportsSoPinTries(const CK_TOKEN_INFO& info) {
  constexpr CK_FLAGS kFlags = CKF_SO_PIN_COUNT_LOW | CKF_SO_PIN_FINAL_TRY | CKF_SO_PIN_LOCKED;
  if ((info.flags & kFlags) != 0)
    return true;
  const TokenIdentity token = IdentityOf(info);
  return std::any_of(std::begin(kReportingKinds), std::end(kReportingKinds),
                     [&token](const TokenKind& kind) {
                       return token.manufacturer == kind.manufacturer && token.model == kind.model;
                     });
}

}  // namespace cardcert::cli
