// Listing the certificates of all tokens.
#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/provider.h"
#include "pkcs11/detail/token_slots.h"
#include "pkcs11/pkcs11.h"

namespace detail = cardcert::detail;

std::list<pkcs11_certificate> PKCS11Module::GetCertificates() {
  if (library_handle == nullptr)
    return {};
  logfile.Log("Fetching tokens...", 5);

  detail::TokenSlots slots{detail::Provider(function_list)};
  if (slots.Count() != CKR_OK)
    return {};
  logfile.Log("Found " + detail::Decimal(slots.capacity()) + " slots.", 5);
  // This fails if a token was inserted after the count (CKR_BUFFER_TOO_SMALL). `changed` stays set,
  // so the host lists again.
  if (slots.Fetch() != CKR_OK)
    return {};

  std::list<pkcs11_certificate> records;
  for (const CK_SLOT_ID slot : slots)
    records.splice(records.end(), GetToken(slot));
  changed = false;
  return records;
}
