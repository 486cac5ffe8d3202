#include <algorithm>
#include <utility>

#include "scripted_provider/provider.h"
#include "support/ckr_names.h"

namespace scripted {

Rule& Rule::Return(CK_RV rv) {
  result = rv;
  return *this;
}

Rule& Rule::DoNothing() {
  does_nothing = true;
  return *this;
}

Rule& Rule::ReportNumber(CK_ULONG reported) {
  number = reported;
  return *this;
}

Rule& Rule::ReportHandle(CK_ULONG reported) {
  handle = reported;
  return *this;
}

Rule& Rule::Before(std::function<void()> action) {
  before = std::move(action);
  return *this;
}

Rule& Rule::After(std::function<void()> action) {
  after = std::move(action);
  return *this;
}

Rule& Rule::Always() {
  always = true;
  return *this;
}

SlotModel& SlotModel::Description(const std::string& text, char padding) {
  description = Padded(text, sizeof CK_SLOT_INFO().slotDescription, padding);
  return *this;
}

Token& SlotModel::Token(const std::string& label) {
  Remove();
  token = std::make_shared<scripted::Token>(label);
  return *token;
}

std::shared_ptr<Token> SlotModel::Remove() {
  for (SessionModel& session : Provider::Instance().sessions()) {
    if (session.slot == this)
      session.lost = true;
  }
  if (token)
    token->login.reset();
  return std::exchange(token, nullptr);
}

Provider& Provider::Instance() {
  static Provider provider;
  return provider;
}

void Provider::Reset() {
  *this = Provider();
}

SlotModel& Provider::Slot(CK_SLOT_ID id, const std::string& description) {
  if (SlotModel* const slot = FindSlot(id))
    return *slot;
  return slots_.emplace_back(id, description);
}

Rule& Provider::On(const std::string& function, int nth) {
  Rule& rule = rules_.emplace_back();
  rule.function = function;
  rule.calls_until = nth;
  return rule;
}

void Provider::ClearScript() {
  rules_.clear();
  events_.clear();
}

int Provider::num_calls(const std::string& function) const {
  return static_cast<int>(std::count(called_.begin(), called_.end(), function));
}

std::vector<Rule> Provider::TakeRules(const std::string& function) {
  called_.push_back(function);
  std::vector<Rule> due;
  for (auto rule = rules_.begin(); rule != rules_.end();) {
    const bool matches = rule->function.empty() || rule->function == function;
    if (!matches || (!rule->used && --rule->calls_until > 0)) {
      ++rule;
      continue;
    }
    rule->used = true;
    due.push_back(*rule);
    rule = rule->always ? std::next(rule) : rules_.erase(rule);
  }
  return due;
}

std::optional<Provider::SlotEvent> Provider::TakeEvent() {
  if (events_.empty())
    return std::nullopt;
  const SlotEvent event = events_.front();
  events_.pop_front();
  return event;
}

SlotModel* Provider::FindSlot(CK_SLOT_ID id) {
  for (SlotModel& slot : slots_) {
    if (slot.id == id)
      return &slot;
  }
  return nullptr;
}

SessionModel* Provider::FindSession(CK_SESSION_HANDLE handle) {
  for (SessionModel& session : sessions_) {
    if (session.handle == handle)
      return &session;
  }
  return nullptr;
}

SessionModel& Provider::AddSession(SlotModel& slot, bool writable) {
  SessionModel& session = sessions_.emplace_back();
  session.handle = ++last_session_;
  session.slot = &slot;
  session.writable = writable;
  return session;
}

void Provider::EndSession(CK_SESSION_HANDLE handle) {
  sessions_.remove_if([handle](const SessionModel& session) { return session.handle == handle; });
}

std::vector<std::string> Provider::Violations() const {
  std::vector<std::string> all = violations_;
  for (const SessionModel& session : sessions_)
    all.push_back("session " + std::to_string(session.handle) + " was never closed");
  if (initialized)
    all.push_back("the provider was never finalized");
  for (const Rule& rule : rules_) {
    if (!rule.used)
      all.push_back("unused rule for " + (rule.function.empty() ? "any function" : rule.function) +
                    ", " + std::to_string(rule.calls_until) + " calls away");
  }
  for (const SlotModel& slot : slots_) {
    if (slot.token && !slot.token->pad_entries.empty())
      all.push_back(std::to_string(slot.token->pad_entries.size()) +
                    " unused entries on the PIN pad");
  }
  for (const SlotEvent& event : events_)
    all.push_back("unused slot event " + support::CkrName(event.rv));
  return all;
}

}  // namespace scripted
