// What all functions of the scripted provider have in common: rules, order checks, the trace.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "scripted_provider/provider.h"

namespace scripted {

class Call {
 public:
  // Takes the rules for this call and runs their Before() actions. `arguments` are for the trace;
  // empty ones are left out.
  Call(const std::string& function, const std::vector<std::string>& arguments);

  // The output that Rule::ReportNumber() overwrites, and the one for Rule::ReportHandle().
  Call& NumberOutput(CK_ULONG* number);
  Call& HandleOutput(CK_ULONG* handle);
  // The call closes or ends something: it does its work even if a rule makes it fail.
  Call& DoesWorkOnFailure();
  // The call is allowed while the provider is not initialised.
  Call& AllowUninitialized();

  // Runs `work` unless a rule replaces it, and adds the call with its result to the trace; on
  // success also the text that `outcome` returns.
  CK_RV Run(const std::function<CK_RV()>& work, const std::function<std::string()>& outcome = {});

 private:
  CK_RV Result(const std::function<CK_RV()>& work);
  bool CheckState();

  std::string function_;
  std::string text_;
  std::vector<Rule> rules_;
  CK_ULONG* number_ = nullptr;
  CK_ULONG* handle_ = nullptr;
  bool does_work_on_failure_ = false;
  bool needs_initialization_ = true;
};

// Returns "slot 1", "session 1", "object 1", as shown in the trace.
std::string SlotText(CK_SLOT_ID slot);
std::string SessionText(CK_SESSION_HANDLE session);
std::string ObjectText(CK_OBJECT_HANDLE object);

// Records a violation and returns `rv`.
CK_RV Violation(CK_RV rv, const std::string& text);

// Runs `work` with the session. Returns CKR_SESSION_HANDLE_INVALID if the session does not exist, a
// violation, or if its token was removed, which is none.
CK_RV InSession(CK_SESSION_HANDLE handle, const std::function<CK_RV(SessionModel&)>& work);

// Runs `work` with the slot. Returns CKR_SLOT_ID_INVALID or CKR_TOKEN_NOT_PRESENT if there is no
// such slot or no token in it.
CK_RV WithToken(CK_SLOT_ID slot, const std::function<CK_RV(SlotModel&)>& work);

}  // namespace scripted
