#include "cli/certificates/changes.h"

#include <algorithm>

#include "cli/certificates/serials.h"

namespace cardcert::cli {
namespace {

bool SameEntry(const pkcs11_certificate& a, const pkcs11_certificate& b) {
  return a.slot_description == b.slot_description && a.presentable_name == b.presentable_name &&
         SameCertificate(a, b);
}

}  // namespace

std::list<pkcs11_certificate> Difference(std::list<pkcs11_certificate> from,
                                         std::list<pkcs11_certificate> without) {
  from.remove_if([&without](const pkcs11_certificate& record) {
    const auto same = std::find_if(
        without.begin(), without.end(),
        [&record](const pkcs11_certificate& other) { return SameEntry(record, other); });
    if (same == without.end())
      return false;
    without.erase(same);
    return true;
  });
  return from;
}

}  // namespace cardcert::cli
