#include "faults/expected_outcome.h"

namespace faults {

namespace {

// The values that say that a PIN has the wrong form; providers disagree on which.
bool IsFormError(CK_RV rv) {
  return rv == CKR_PIN_INVALID || rv == CKR_PIN_LEN_RANGE || rv == CKR_DATA_INVALID ||
         rv == CKR_DATA_LEN_RANGE || rv == CKR_ARGUMENTS_BAD;
}

// The values after which the user is asked for the PIN again.
bool IsPinError(CK_RV rv) {
  return rv == CKR_PIN_INCORRECT || IsFormError(rv);
}

std::string Number(CK_RV rv) {
  return std::to_string(static_cast<long>(rv));
}

void Replace(std::string* text, const std::string& what, const std::string& with) {
  for (auto at = text->find(what); at != std::string::npos; at = text->find(what, at + with.size()))
    text->replace(at, what.size(), with);
}

std::string LastLine(const std::string& lines) {
  if (lines.empty())
    return lines;
  const std::string::size_type before = lines.rfind('\n', lines.size() - 2);
  const std::string::size_type begin = before == std::string::npos ? 0 : before + 1;
  return lines.substr(begin, lines.size() - 1 - begin);
}

bool Signs(const Operation& operation) {
  return std::string(operation.result) == "signed";
}

bool RepeatsLogin(const Operation& operation) {
  return Signs(operation) || std::string(operation.name) == "Unlock";
}

// What the row itself says.
Outcome OutcomeOfRow(const Operation& operation, const CallRow& row) {
  Outcome outcome = {row.result == kUnchanged ? operation.result : row.result, row.failures, ""};
  if (row.last == kLastFailure)
    outcome.last = LastLine(row.failures);
  else if (row.last != kUnchanged)
    outcome.last = row.last;
  return outcome;
}

// The operation has its usual result. `line` is the last one of an operation that ends there; a
// signature logs more lines afterwards.
Outcome Succeeds(const Operation& operation, const std::string& failures, const std::string& line) {
  return {operation.result, failures, Signs(operation) ? "" : line};
}

// A signature, or Unlock(), fails with `rv` after these lines.
Outcome FailsWith(const Operation& operation, std::string failures, CK_RV rv) {
  if (!Signs(operation))
    return {Number(rv), failures, LastLine(failures)};
  failures += "Signature operation failed (" + Number(rv) + ")\n";
  return {"not signed", failures, LastLine(failures)};
}

// C_Login fails with `rv`, and Login() is not repeated.
Outcome OutcomeOfSingleLogin(const Operation& operation, const CallRow& row, CK_RV rv) {
  const std::string login_error = "Token login error: " + Number(rv);
  if (IsPinError(rv))
    return {Number(CKR_PIN_INCORRECT), "", login_error};
  if (rv != CKR_PIN_LOCKED)
    return OutcomeOfRow(operation, row);
  if (row.handling == Handling::kSingleSoLogin)
    return {Number(rv), "", login_error};
  return {Number(CKR_PIN_INCORRECT), "", "Attempting to unlock passphrase..."};
}

Outcome OutcomeOfHandling(const Operation& operation, const CallRow& row, CK_RV rv) {
  const std::string login_error = "Token login error: " + Number(rv);
  switch (row.handling) {
    case Handling::kAnyFailure:
      break;
    case Handling::kBeforeLogin:
      if (rv == CKR_PIN_INCORRECT && RepeatsLogin(operation))
        return Succeeds(operation, row.failures, LastLine(row.failures));
      return FailsWith(operation, row.failures, rv);
    case Handling::kUserLogin:
      if (IsPinError(rv) || rv == CKR_PIN_LOCKED)
        return {operation.result, "", ""};
      return FailsWith(operation, row.failures, rv);
    case Handling::kSoLogin:
      if (IsPinError(rv))
        return Succeeds(operation, "", login_error);
      if (rv != CKR_PIN_LOCKED)
        return FailsWith(operation, row.failures, rv);
      return Signs(operation) ? FailsWith(operation, "", rv) : Outcome{Number(rv), "", login_error};
    case Handling::kInitPin:
      if (IsFormError(rv))
        return Succeeds(operation, "", "Passphrase init error: " + Number(rv));
      if (rv == CKR_PIN_INCORRECT)
        return FailsWith(operation, "", CKR_GENERAL_ERROR);
      return FailsWith(operation, rv == CKR_PIN_LOCKED ? "" : row.failures, rv);
    case Handling::kSingleUserLogin:
    case Handling::kSingleSoLogin:
      return OutcomeOfSingleLogin(operation, row, rv);
  }
  return OutcomeOfRow(operation, row);
}

}  // namespace

Outcome ExpectedOutcome(const Operation& operation, const CallRow& row, CK_RV rv) {
  Outcome outcome = OutcomeOfHandling(operation, row, rv);
  for (std::string* text : {&outcome.result, &outcome.failures, &outcome.last})
    Replace(text, "{rv}", Number(rv));
  // CKR_CANCEL is taken for a cancellation by the user, whichever call returns it.
  for (std::string* text : {&outcome.failures, &outcome.last})
    Replace(text, "Signature operation failed (1)", "Signature operation aborted by user");
  return outcome;
}

}  // namespace faults
