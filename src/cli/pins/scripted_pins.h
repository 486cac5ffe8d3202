// Answers for scripts: nobody is asked, and no script locks a card that tells of its tries.
#pragma once

#include <memory>
#include <utility>

#include "cli/component_log.h"
#include "cli/pins/pin_answers.h"
#include "cli/terminal/secret.h"

namespace cardcert::cli {

// The PINs that were given with the command; null for one that was not.
struct GivenPins {
  std::unique_ptr<Secret> user;
  std::unique_ptr<Secret> security_officer;
  std::unique_ptr<Secret> new_user;
};

// Each PIN is offered once, and not at all when the token says that it is the last try. A locked
// PIN is unlocked when the PINs for it were given. After that the new PIN is offered, once,
// whatever the token says of tries: it has just taken this PIN from us, and some tokens go on
// showing what was true of the old one.
class ScriptedPins : public PinAnswers {
 public:
  ScriptedPins(GivenPins pins, ComponentLog* log) : pins_(std::move(pins)), log_(*log) {}

 private:
  struct Offers {
    bool user = false;
    bool security_officer = false;
    bool new_user = false;
    bool new_user_login = false;
  };

  bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length) override;
  void Tell(const char* text) override;

  bool ConsentToUnlock();
  bool OfferOnce(pkcs11_pin_type type, Secret* pin, bool* offered, unsigned char* buffer,
                 unsigned long* length);
  bool HoldBack(ExitStatus why, const std::string& reason);

  GivenPins pins_;
  Offers offered_;
  ComponentLog& log_;
};

}  // namespace cardcert::cli
