// Every operation that calls the provider, on healthy tokens, and what becomes of it when one of
// its calls fails.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "faults/faults_test.h"

namespace faults {

// How the answer to a call is taken.
enum class Meaning {
  kPlain,            // success, or any failure
  kInLogin,          // before C_Login: CKR_PIN_INCORRECT makes the caller call again
  kUserLogin,        // C_Login as CKU_USER
  kSoLogin,          // C_Login as CKU_SO
  kNewPin,           // C_InitPIN
  kDirectUserLogin,  // C_Login when Login() itself is the operation, which never asks again
  kDirectSoLogin,
};

// One call of a healthy run, and what becomes of the operation when it fails.
struct CallRow {
  const char* function;
  // The result; {rv} stands for the value in decimal. Null: as in a healthy run.
  const char* result;
  // All log lines of level 2 and 3, each ended by a line break.
  std::string failures;
  // The last log line; null: as in a healthy run; empty: the last of `failures`.
  const char* last;
  Meaning meaning = Meaning::kPlain;
};

struct Operation {
  const char* name;
  // Further set-up; the provider is loaded already.
  std::function<void(scripted::Provider&, PKCS11Module&)> prepare;
  // Its result as text.
  std::function<std::string(PKCS11Module&, User&)> act;
  const char* result;
  std::vector<CallRow> calls;
  // Sessions that the caller holds afterwards, when the result is the healthy one.
  std::size_t sessions = 0;
};

const std::vector<Operation>& AllOperations();
const Operation& OperationNamed(const std::string& name);
std::string TestName(const testing::TestParamInfo<Operation>& parameter);
void PrintTo(const Operation& operation, std::ostream* out);

// What is to be seen when the call of `row` returns `rv`.
struct Outcome {
  std::string result;
  std::string failures;
  std::string last;  // Log line; empty: as in a healthy run.
};
Outcome ExpectedOutcome(const Operation& operation, const CallRow& row, CK_RV rv);

}  // namespace faults
