#include "scripted_provider/call.h"

#include "support/ckr_names.h"

namespace scripted {

Call::Call(const std::string& function, const std::vector<std::string>& arguments)
    : function_(function), text_(function + '(') {
  rules_ = Provider::Instance().TakeRules(function);
  for (const std::string& argument : arguments) {
    if (!argument.empty())
      text_ += (text_.back() == '(' ? "" : ", ") + argument;
  }
  text_ += ')';
  for (const Rule& rule : rules_) {
    if (rule.before)
      rule.before();
  }
}

Call& Call::NumberOutput(CK_ULONG* number) {
  number_ = number;
  return *this;
}

Call& Call::HandleOutput(CK_ULONG* handle) {
  handle_ = handle;
  return *this;
}

Call& Call::DoesWorkOnFailure() {
  does_work_on_failure_ = true;
  return *this;
}

Call& Call::AllowUninitialized() {
  needs_initialization_ = false;
  return *this;
}

bool Call::CheckState() {
  Provider& provider = Provider::Instance();
  if (!needs_initialization_)
    return true;
  if (!provider.initialized) {
    provider.AddViolation(function_ + " while the provider is not initialized");
    return false;
  }
  if (provider.thread != std::this_thread::get_id())
    provider.AddViolation(function_ + " from another thread than C_Initialize");
  return true;
}

CK_RV Call::Result(const std::function<CK_RV()>& work) {
  if (!CheckState())
    return CKR_CRYPTOKI_NOT_INITIALIZED;
  std::optional<CK_RV> forced;
  for (const Rule& rule : rules_) {
    if (rule.does_nothing)
      return CKR_OK;
    if (rule.result)
      forced = rule.result;
  }
  if (forced && *forced != CKR_OK && !does_work_on_failure_)
    return *forced;
  const CK_RV rv = work();
  return forced.value_or(rv);
}

CK_RV Call::Run(const std::function<CK_RV()>& work, const std::function<std::string()>& outcome) {
  const CK_RV rv = Result(work);
  for (const Rule& rule : rules_) {
    if (rule.number && number_ != nullptr)
      *number_ = *rule.number;
    if (rule.handle && handle_ != nullptr)
      *handle_ = *rule.handle;
  }
  std::string line = text_ + " = " + support::CkrName(rv);
  if (rv == CKR_OK && outcome)
    line += ", " + outcome();
  Trace::Instance().Add(line);
  for (const Rule& rule : rules_) {
    if (rule.after)
      rule.after();
  }
  return rv;
}

std::string SlotText(CK_SLOT_ID slot) {
  return "slot " + std::to_string(slot);
}

std::string SessionText(CK_SESSION_HANDLE session) {
  return "session " + std::to_string(session);
}

std::string ObjectText(CK_OBJECT_HANDLE object) {
  return "object " + std::to_string(object);
}

CK_RV Violation(CK_RV rv, const std::string& text) {
  Provider::Instance().AddViolation(text);
  return rv;
}

CK_RV InSession(CK_SESSION_HANDLE handle, const std::function<CK_RV(SessionModel&)>& work) {
  SessionModel* const session = Provider::Instance().FindSession(handle);
  if (session == nullptr)
    return Violation(CKR_SESSION_HANDLE_INVALID,
                     "a call on " + SessionText(handle) + ", which is not open");
  return session->lost ? CKR_SESSION_HANDLE_INVALID : work(*session);
}

CK_RV WithToken(CK_SLOT_ID id, const std::function<CK_RV(SlotModel&)>& work) {
  SlotModel* const slot = Provider::Instance().FindSlot(id);
  if (slot == nullptr)
    return CKR_SLOT_ID_INVALID;
  return slot->token ? work(*slot) : CKR_TOKEN_NOT_PRESENT;
}

}  // namespace scripted
