// PINs for scripts: nobody is asked, and the last try of a PIN is never used.
#pragma once

#include <memory>
#include <string>

#include "cli/component_log.h"
#include "cli/pins/pin_answers.h"
#include "cli/terminal/secret.h"

namespace cardcert::cli {

// The PINs from the command line; null for one that was not given.
struct GivenPins {
  std::unique_ptr<Secret> user;
  std::unique_ptr<Secret> security_officer;
  std::unique_ptr<Secret> new_user;
  bool allow_unreported_tries = false;  // --allow-unreported-tries
};

// Offers each PIN once, and not at all if the token reports that it is the last try. The SO PIN is
// not offered to a token that reports nothing about its tries either, unless the user allows it: a
// script that is run again and again with a wrong SO PIN would destroy the card. A locked PIN
// is unlocked if the PINs for that were given. The new PIN is then offered for the login, once,
// whatever the token reports about tries: the token has just accepted this PIN, and some tokens go
// on reporting the state of the old one.
//
// PINs that were given are passed to a token with a PIN pad, too: PKCS#11 lets it accept them, and
// OpenSC does. Without them the run fails, because nobody may be there to use the pad.
//
// A PIN that has been offered for the last time is cleared at once, and all others when the login
// has succeeded, which is before the signature is made.
class ScriptedPins : public PinAnswers {
 public:
  // At most one ScriptedPins per log may exist at a time.
  ScriptedPins(GivenPins pins, ComponentLog* log);
  ~ScriptedPins() override;
  ScriptedPins(const ScriptedPins&) = delete;
  ScriptedPins& operator=(const ScriptedPins&) = delete;

  void Finish() override;

 private:
  struct Offers {
    bool user = false;
    bool security_officer = false;
    bool new_user = false;
    bool new_user_login = false;
  };

  bool Supply(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) override;
  void Show(const char* error) override;

  bool ConsentToUnlock();
  bool OfferOnce(pkcs11_pin_type type, Secret* pin, bool* offered, unsigned char* buffer,
                 unsigned long* length);

  GivenPins pins_;
  Offers offered_;
  ComponentLog& log_;
};

}  // namespace cardcert::cli
