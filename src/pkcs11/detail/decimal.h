// Numbers in log messages.
#pragma once

#include <string>

#include "host/kvutils.h"

namespace cardcert::detail {

// Returns a CK_ULONG (a slot ID, handle, count or CK_RV) in signed decimal.
inline std::string Decimal(unsigned long number) {
  return KVUtils::LongToString(static_cast<long>(number));
}

}  // namespace cardcert::detail
