#include "cli/pins/pin_answers.h"

#include "cli/pins/pin_words.h"

namespace cardcert::cli {

bool PinAnswers::Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) {
  if (!core_dump_blocker_)
    core_dump_blocker_.emplace();
  const bool supplied = Supply(type, buffer, length);
  if (supplied && type != PIN_TYPE_UNLOCK)
    last_error_.reset();
  return supplied;
}

void PinAnswers::Report(pkcs11_pin_type type, pkcs11_pin_error error) {
  last_error_ = error;
  Show(PinErrorText(type, error));
}

void PinAnswers::Finish() {
  core_dump_blocker_.reset();
}

std::optional<ExitStatus> PinAnswers::Failure() const {
  if (refusal_)
    return refusal_;
  if (!last_error_)
    return std::nullopt;
  return *last_error_ == PIN_ERROR_LOCKED ? kExitPinLocked : kExitPinWrong;
}

bool PinAnswers::Refuse(ExitStatus why) {
  refusal_ = why;
  return false;
}

bool PinAnswers::Cancel() {
  cancelled_by_user_ = true;
  return Refuse(kExitCancelled);
}

}  // namespace cardcert::cli
