// Who answers the component's questions for PINs.
#pragma once

#include <optional>

#include "cli/component_log.h"
#include "cli/exit_status.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

class PinAnswers {
 public:
  virtual ~PinAnswers() = default;

  // The callbacks of PKCS11Module::Sign(); `data` is a PinAnswers.
  static bool AskCallback(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length,
                          void* data);
  static void TellCallback(pkcs11_pin_type type, pkcs11_pin_error error, void* data);

  // Why a signature was not made, as far as PINs are the reason.
  std::optional<ExitStatus> Failure() const;

  // Whether the user did not want to go on. False where there was nobody to ask.
  bool cancelled_by_user() const { return cancelled_by_user_; }

 protected:
  // As for pin_cb. False: `refusal_` has been set.
  virtual bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) = 0;
  virtual void Tell(const char* text) = 0;

  bool Refuse(ExitStatus why) {
    refusal_ = why;
    return false;
  }
  bool Cancelled() {
    cancelled_by_user_ = true;
    return Refuse(kExitCancelled);
  }
  // The last fault that the token found with a PIN since one was last supplied.
  const std::optional<pkcs11_pin_error>& last_error() const { return last_error_; }

 private:
  std::optional<ExitStatus> refusal_;
  bool cancelled_by_user_ = false;
  std::optional<pkcs11_pin_error> last_error_;
};

}  // namespace cardcert::cli
