#include <algorithm>
#include <utility>

#include "scripted_provider/control.h"
#include "scripted_provider/names.h"

namespace scripted {

Rule& Rule::Return(CK_RV rv) {
  result = rv;
  return *this;
}

Rule& Rule::Pretend() {
  pretends = true;
  return *this;
}

Rule& Rule::Claim(CK_ULONG claimed) {
  number = claimed;
  return *this;
}

Rule& Rule::Handle(CK_ULONG claimed) {
  handle = claimed;
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
  for (SessionModel& session : World::Instance().sessions()) {
    if (session.slot == this)
      session.lost = true;
  }
  if (token)
    token->login.reset();
  return std::exchange(token, nullptr);
}

World& World::Instance() {
  static World world;
  return world;
}

void World::Reset() {
  *this = World();
}

SlotModel& World::Slot(CK_SLOT_ID id, const std::string& description) {
  if (SlotModel* const slot = FindSlot(id))
    return *slot;
  return slots_.emplace_back(id, description);
}

Rule& World::On(const std::string& function, int nth) {
  Rule& rule = rules_.emplace_back();
  rule.function = function;
  rule.calls_until = nth;
  return rule;
}

void World::ClearScript() {
  rules_.clear();
  events_.clear();
}

int World::calls(const std::string& function) const {
  return static_cast<int>(std::count(called_.begin(), called_.end(), function));
}

std::vector<Rule> World::TakeRules(const std::string& function) {
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

std::optional<World::SlotEvent> World::TakeEvent() {
  if (events_.empty())
    return std::nullopt;
  const SlotEvent event = events_.front();
  events_.pop_front();
  return event;
}

SlotModel* World::FindSlot(CK_SLOT_ID id) {
  for (SlotModel& slot : slots_) {
    if (slot.id == id)
      return &slot;
  }
  return nullptr;
}

SessionModel* World::FindSession(CK_SESSION_HANDLE handle) {
  for (SessionModel& session : sessions_) {
    if (session.handle == handle)
      return &session;
  }
  return nullptr;
}

SessionModel& World::AddSession(SlotModel& slot, bool writable) {
  SessionModel& session = sessions_.emplace_back();
  session.handle = ++last_session_;
  session.slot = &slot;
  session.writable = writable;
  return session;
}

void World::EndSession(CK_SESSION_HANDLE handle) {
  sessions_.remove_if([handle](const SessionModel& session) { return session.handle == handle; });
}

std::vector<std::string> World::Violations(bool at_end) const {
  std::vector<std::string> all = violations_;
  if (!at_end)
    return all;
  for (const SessionModel& session : sessions_)
    all.push_back("session " + std::to_string(session.handle) + " was never closed");
  if (initialized)
    all.push_back("the provider was never finalized");
  for (const Rule& rule : rules_) {
    if (!rule.used)
      all.push_back("the script for " + (rule.function.empty() ? "a call" : rule.function) +
                    " was not read, " + std::to_string(rule.calls_until) + " to go");
  }
  for (const SlotEvent& event : events_)
    all.push_back("the slot event " + ResultName(event.rv) + " was not read");
  return all;
}

}  // namespace scripted
