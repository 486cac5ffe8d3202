// What is expected of an operation when one of its provider calls fails.
#pragma once

#include <string>

#include "faults/operations.h"

namespace faults {

struct Outcome {
  std::string result;
  std::string failures;  // All log lines of levels 2 and 3, each ended by a newline.
  std::string last;      // The last log line; empty: as in a run without failures.
};

// Returns the outcome when the call of `row` returns `rv`, which is not CKR_OK. Most rows state
// it directly. In logins and for C_InitPIN it depends on the value, which may lead to another
// request for a PIN, or to an unlock.
Outcome ExpectedOutcome(const Operation& operation, const CallRow& row, CK_RV rv);

}  // namespace faults
