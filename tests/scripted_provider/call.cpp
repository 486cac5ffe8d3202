#include "scripted_provider/call.h"

#include "scripted_provider/names.h"

namespace scripted {

Call::Call(const std::string& function, const std::vector<std::string>& arguments)
    : function_(function), text_(function + '(') {
  rules_ = World::Instance().TakeRules(function);
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

Call& Call::Number(CK_ULONG* number) {
  number_ = number;
  return *this;
}

Call& Call::Handle(CK_ULONG* handle) {
  handle_ = handle;
  return *this;
}

Call& Call::EndsSomething() {
  ends_something_ = true;
  return *this;
}

Call& Call::NeedsNoInitialization() {
  needs_initialization_ = false;
  return *this;
}

bool Call::MayBeCalled() {
  World& world = World::Instance();
  if (!needs_initialization_)
    return true;
  if (!world.initialized) {
    world.Violation(function_ + " while the provider is not initialized");
    return false;
  }
  if (world.thread != std::this_thread::get_id())
    world.Violation(function_ + " from another thread than C_Initialize");
  return true;
}

CK_RV Call::Answer(const std::function<CK_RV()>& work) {
  if (!MayBeCalled())
    return CKR_CRYPTOKI_NOT_INITIALIZED;
  std::optional<CK_RV> forced;
  for (const Rule& rule : rules_) {
    if (rule.pretends)
      return CKR_OK;
    if (rule.result)
      forced = rule.result;
  }
  if (forced && *forced != CKR_OK && !ends_something_)
    return *forced;
  const CK_RV rv = work();
  return forced.value_or(rv);
}

CK_RV Call::Do(const std::function<CK_RV()>& work, const std::function<std::string()>& outcome) {
  const CK_RV rv = Answer(work);
  for (const Rule& rule : rules_) {
    if (rule.number && number_ != nullptr)
      *number_ = *rule.number;
    if (rule.handle && handle_ != nullptr)
      *handle_ = *rule.handle;
  }
  std::string line = text_ + " = " + ResultName(rv);
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

CK_RV Fault(CK_RV rv, const std::string& text) {
  World::Instance().Violation(text);
  return rv;
}

CK_RV InSession(CK_SESSION_HANDLE handle, const std::function<CK_RV(SessionModel&)>& work) {
  SessionModel* const session = World::Instance().FindSession(handle);
  if (session == nullptr)
    return Fault(CKR_SESSION_HANDLE_INVALID,
                 "a call on " + SessionText(handle) + ", which is not open");
  return session->lost ? CKR_SESSION_HANDLE_INVALID : work(*session);
}

CK_RV WithToken(CK_SLOT_ID id, const std::function<CK_RV(SlotModel&)>& work) {
  SlotModel* const slot = World::Instance().FindSlot(id);
  if (slot == nullptr)
    return CKR_SLOT_ID_INVALID;
  return slot->token ? work(*slot) : CKR_TOKEN_NOT_PRESENT;
}

}  // namespace scripted
