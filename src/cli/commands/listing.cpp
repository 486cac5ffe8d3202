#include "cli/commands/listing.h"

#include <utility>

namespace cardcert::cli {
namespace {

using Kind = ComponentEventKind;

bool LeavesOut(Kind kind) {
  switch (kind) {
    case Kind::kNameMissing:
    case Kind::kSubjectUnreadable:
    case Kind::kCaUnreadable:
    case Kind::kSerialUnreadable:
    case Kind::kKeyUsageUnreadable:
    case Kind::kPublicKeyUnreadable:
      return true;
    default:
      return false;
  }
}

}  // namespace

Listing MakeListing(std::list<pkcs11_certificate> records,
                    const std::vector<ComponentEvent>& events) {
  Listing listing;
  listing.records = std::move(records);
  std::vector<WalkedCertificate> walk;
  WalkedCertificate current;
  auto record = listing.records.cbegin();
  for (const ComponentEvent& event : events) {
    if (event.kind == Kind::kSlotEntered) {
      current.slot = event.slot;
    } else if (event.kind == Kind::kSubjectRead) {
      current.subject = event.text;
    } else if (event.kind == Kind::kSerialRead) {
      current.serial = event.text;
    } else if (event.kind == Kind::kDescribed || LeavesOut(event.kind)) {
      if (event.kind == Kind::kDescribed) {
        if (record == listing.records.cend() || current.serial != record->serial)
          return listing;
        current.record = &*record++;
      }
      walk.push_back(current);
      current = {current.slot, std::nullopt, std::nullopt, nullptr};
    }
  }
  if (record == listing.records.cend())
    listing.walk = std::move(walk);
  return listing;
}

}  // namespace cardcert::cli
