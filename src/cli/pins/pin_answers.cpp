#include "cli/pins/pin_answers.h"

#include "cli/pins/pin_words.h"

namespace cardcert::cli {

bool PinAnswers::AskCallback(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length,
                             void* data) {
  auto* const answers = static_cast<PinAnswers*>(data);
  const bool answered = answers->Ask(type, buffer, length);
  if (answered && type != PIN_TYPE_UNLOCK)
    answers->last_error_.reset();
  return answered;
}

void PinAnswers::TellCallback(pkcs11_pin_type type, pkcs11_pin_error error, void* data) {
  auto* const answers = static_cast<PinAnswers*>(data);
  answers->last_error_ = error;
  answers->Tell(PinErrorText(type, error));
}

std::optional<ExitStatus> PinAnswers::Failure() const {
  if (refusal_)
    return refusal_;
  if (!last_error_)
    return std::nullopt;
  return *last_error_ == PIN_ERROR_LOCKED ? kExitPinLocked : kExitPinWrong;
}

}  // namespace cardcert::cli
