// One call of the provider under way: what all of its functions have in common.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "scripted_provider/control.h"

namespace scripted {

class Call {
 public:
  // Takes the rules for this call and runs what is to happen before it. `arguments` stand in the
  // trace.
  Call(const std::string& function, const std::vector<std::string>& arguments);

  // Where the call answers a length or a number, and where a handle, for rules that claim another.
  Call& Number(CK_ULONG* number);
  Call& Handle(CK_ULONG* handle);
  // A failure that a rule asks for still does the work: the call ends something.
  Call& EndsSomething();
  // The call is allowed while the provider is not initialised.
  Call& NeedsNoInitialization();

  // Does `work` unless a rule answers in its stead, and adds the call to the trace, on success with
  // what `outcome` says of the answer.
  CK_RV Do(const std::function<CK_RV()>& work, const std::function<std::string()>& outcome = {});

 private:
  CK_RV Answer(const std::function<CK_RV()>& work);
  bool MayBeCalled();

  std::string function_;
  std::string text_;
  std::vector<Rule> rules_;
  CK_ULONG* number_ = nullptr;
  CK_ULONG* handle_ = nullptr;
  bool ends_something_ = false;
  bool needs_initialization_ = true;
};

// "slot 1", "session 1", "object 1".
std::string SlotText(CK_SLOT_ID slot);
std::string SessionText(CK_SESSION_HANDLE session);
std::string ObjectText(CK_OBJECT_HANDLE object);

// A fault of the caller: it is noted, and answered.
CK_RV Fault(CK_RV rv, const std::string& text);

// Does `work` with the session: CKR_SESSION_HANDLE_INVALID when there is none, which is a fault
// unless its token was taken out.
CK_RV InSession(CK_SESSION_HANDLE handle, const std::function<CK_RV(SessionModel&)>& work);

// Does `work` with the token in the slot: CKR_SLOT_ID_INVALID or CKR_TOKEN_NOT_PRESENT.
CK_RV WithToken(CK_SLOT_ID slot, const std::function<CK_RV(SlotModel&)>& work);

}  // namespace scripted
