// Who answers when the component asks for a PIN.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "cli/exit_status.h"
#include "cli/terminal/core_dump_blocker.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// The certificate and the token that a PIN is for. The texts are as the token gives them.
struct PinSubject {
  std::string certificate;
  std::string token;
  std::string slot;
  bool reports_so_pin_tries = false;  // see ReportsSoPinTries()
  bool has_pin_pad = false;           // CKF_PROTECTED_AUTHENTICATION_PATH
};

class PinAnswers {
 public:
  virtual ~PinAnswers() = default;

  // As pin_cb and error_cb of the component. From the first Ask() to Finish() the process cannot be
  // dumped, because the component and the provider have copies of the PIN.
  bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length);
  void Report(pkcs11_pin_type type, pkcs11_pin_error error);

  // What the PIN is for. Must be set before each Ask().
  void set_subject(PinSubject subject) { subject_ = std::move(subject); }

  // Clears the PINs that are left and restores the terminal. Must be called when the component
  // needs no more PINs. The destructor does the same.
  virtual void Finish();

  // Returns the exit status if a PIN is the reason why there is no signature.
  std::optional<ExitStatus> Failure() const;

  // Returns true if a person has cancelled; false if there was nobody to ask.
  bool cancelled_by_user() const { return cancelled_by_user_; }

 protected:
  // As Ask(). If it returns false, it has called Refuse() or Cancel().
  virtual bool Supply(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) = 0;

  // Shows what is wrong with a PIN.
  virtual void Show(const char* error) = 0;

  // Both return false.
  bool Refuse(ExitStatus why);
  bool Cancel();

  // What was wrong with the last PIN that was supplied, if anything.
  const std::optional<pkcs11_pin_error>& last_error() const { return last_error_; }
  const PinSubject& subject() const { return subject_; }

 private:
  std::optional<CoreDumpBlocker> core_dump_blocker_;
  PinSubject subject_;
  std::optional<ExitStatus> refusal_;
  bool cancelled_by_user_ = false;
  std::optional<pkcs11_pin_error> last_error_;
};

}  // namespace cardcert::cli
