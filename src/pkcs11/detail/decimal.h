// How numbers stand in messages.
#pragma once

#include <string>

#include "host/kvutils.h"

namespace cardcert::detail {

// Slots, handles, counts and PKCS#11 return values, which are all CK_ULONG, in signed decimal.
inline std::string Decimal(unsigned long number) {
  return KVUtils::LongToString(static_cast<long>(number));
}

}  // namespace cardcert::detail
