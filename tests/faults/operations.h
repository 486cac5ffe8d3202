// The operations of the component that call the provider, each with a table of its provider calls.
//
// An operation runs on the healthy tokens of faults_test.h. Its table lists the calls of a run
// without failures, in order, and says for each one what happens when that call alone fails: the
// result of the operation, the warnings and errors in the log, and the last log line.
// expected_outcome.h turns a row and the value that the call returns into what a test expects.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "faults/faults_test.h"

namespace faults {

// How the component handles the value that a call returns.
enum class Handling {
  kAnyFailure,   // Every value but CKR_OK is a failure like any other.
  kBeforeLogin,  // C_GetTokenInfo in Login(): the caller repeats Login() after CKR_PIN_INCORRECT.
  kUserLogin,    // C_Login as CKU_USER: repeated after a wrong PIN, a locked PIN is unlocked.
  kSoLogin,      // C_Login as CKU_SO: repeated after a wrong PIN.
  kInitPin,      // C_InitPIN: repeated after a malformed PIN.
  kSingleUserLogin,  // C_Login when the operation is Login() itself, which is not repeated.
  kSingleSoLogin,
};

// Values of CallRow::result and CallRow::last.
inline constexpr const char* kUnchanged = nullptr;  // As in a run without failures.
inline constexpr char kLastFailure[] = "";          // The last line of CallRow::failures.

// One provider call, and the outcome of the operation if it fails. In all texts {rv} stands for the
// value that the call returns, in decimal.
struct CallRow {
  const char* function;
  const char* result;    // Of the operation, or kUnchanged.
  std::string failures;  // All log lines of levels 2 and 3, each ended by a newline.
  const char* last;      // The last log line, or kUnchanged or kLastFailure.
  Handling handling = Handling::kAnyFailure;
};

struct Operation {
  const char* name;
  // Prepares the provider, which is loaded and has the healthy tokens, and the module.
  std::function<void(scripted::Provider&, PKCS11Module&)> prepare;
  // Runs the operation and returns its result as text.
  std::function<std::string(PKCS11Module&, User&)> act;
  const char* result;  // Without failures.
  std::vector<CallRow> calls;
  // The number of sessions that the caller has to close after the result above.
  std::size_t sessions = 0;
};

const std::vector<Operation>& AllOperations();
const Operation& OperationNamed(const std::string& name);

// For INSTANTIATE_TEST_SUITE_P.
std::string TestName(const testing::TestParamInfo<Operation>& parameter);
void PrintTo(const Operation& operation, std::ostream* out);

}  // namespace faults
