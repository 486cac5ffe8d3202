// A PKCS#11 provider for tests: the test decides which slots, tokens and objects it has and how
// each call ends.
//
//   Provider& provider = Provider::Instance();
//   provider.Slot(1, "Reader").Token("Alice (PIN1)").Certificate("A");
//   provider.On("C_FindObjects", 2).Return(CKR_DEVICE_ERROR);       // The second call from now on.
//   provider.On("C_GetSlotList").After([&] { provider.Slot(2).Token("Bob"); });
//   provider.OnAnyCall(7).Before([&] { provider.Slot(1).Remove(); });  // The seventh call.
//   provider.AddSlotEvent(1);  // The answer of the next C_WaitForSlotEvent.
//
// Without rules, every function behaves as PKCS#11 2.40 describes. Each call is recorded in the
// Trace. Violations() lists what the caller did wrong: calls out of order, sessions and logins that
// were never ended. It also lists rules and events that were never used.
//
// The loadable libraries contain nothing but entry points. The state is in a shared library that
// the test links too, so it survives when the component unloads a provider.
#pragma once

#include <p11-kit/pkcs11.h>

#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "scripted_provider/token.h"
#include "scripted_provider/trace.h"

namespace scripted {

// What happens at one call, in addition to its normal work or instead of it.
struct Rule {
  // The call returns `rv`. If that is not CKR_OK, the call does no work, with one exception:
  // C_CloseSession, C_FindObjectsFinal, C_Logout and C_Finalize still end what they are called for.
  Rule& Return(CK_RV rv);
  // The call returns CKR_OK without doing anything: its outputs keep their values.
  Rule& DoNothing();
  // After its work, the call reports this length or number: the length of the first attribute or of
  // the signature, or the number of slots or objects.
  Rule& ReportNumber(CK_ULONG number);
  // After its work, the call reports this session, object or slot.
  Rule& ReportHandle(CK_ULONG handle);
  // Runs before the call does its work, or after it has been recorded in the trace.
  Rule& Before(std::function<void()> action);
  Rule& After(std::function<void()> action);
  // The rule also applies to every later call.
  Rule& Always();

  std::string function;  // Empty: any function.
  int calls_until = 1;
  bool always = false;
  bool used = false;
  bool does_nothing = false;
  std::optional<CK_RV> result;
  std::optional<CK_ULONG> number;
  std::optional<CK_ULONG> handle;
  std::function<void()> before;
  std::function<void()> after;
};

class SlotModel {
 public:
  SlotModel(CK_SLOT_ID slot_id, const std::string& text) : id(slot_id) { Description(text); }

  // Padded to 64 bytes.
  SlotModel& Description(const std::string& text, char padding = ' ');
  // Inserts a new token in place of the present one. Without a label, returns the present token.
  scripted::Token& Token(const std::string& label);
  scripted::Token& Token() { return *token; }
  // Removes the token and invalidates all sessions on it. Returns the token, for Insert().
  std::shared_ptr<scripted::Token> Remove();
  void Insert(std::shared_ptr<scripted::Token> another) { token = std::move(another); }

  CK_SLOT_ID id;
  std::string description;  // 64 bytes.
  std::shared_ptr<scripted::Token> token;
};

struct SessionModel {
  CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
  SlotModel* slot = nullptr;
  bool writable = false;
  bool lost = false;  // The token was removed; the caller must still close the session.
  std::optional<std::deque<CK_OBJECT_HANDLE>> search;
  std::shared_ptr<const support::RsaKey> signing_key;
};

class Provider {
 public:
  static Provider& Instance();
  // Removes all slots and rules; the provider counts as not initialised.
  void Reset();

  // Returns the slot with this number, and adds it first if there is none. C_GetSlotList returns
  // slots in the order in which they were added.
  SlotModel& Slot(CK_SLOT_ID id, const std::string& description = "Reader");

  // Adds a rule for the n-th call of `function`, or of any function, counted from now on.
  Rule& On(const std::string& function, int nth = 1);
  Rule& OnAnyCall(int nth) { return On(std::string(), nth); }
  // Removes all rules and slot events.
  void ClearScript();

  // Adds an answer of C_WaitForSlotEvent: CKR_OK with a slot, or `rv`. Answers are used in the
  // order in which they were added. When none is left, the answer is CKR_NO_EVENT.
  void AddSlotEvent(CK_SLOT_ID slot) { events_.push_back({CKR_OK, slot}); }
  void AddPollResult(CK_RV rv) { events_.push_back({rv, 0}); }

  // Writes PINs to the trace; by default it shows only their lengths.
  void TracePins() { traces_pins_ = true; }

  // Returns the number of calls since Reset(), of all functions or of one.
  int num_calls() const { return static_cast<int>(called_.size()); }
  int num_calls(const std::string& function) const;

  // Returns what the caller has done wrong until now.
  const std::vector<std::string>& ViolationsSoFar() const { return violations_; }
  // For the end of a test: also returns what is left open and which rules and events are unused.
  std::vector<std::string> Violations() const;

  std::string manufacturer = Padded("Example Ltd", 32);  // 32 bytes each.
  std::string library_description = Padded("Scripted tokens", 32);

  // The rest is used by the provider's functions.
  struct SlotEvent {
    CK_RV rv;
    CK_SLOT_ID slot;
  };
  void AddViolation(const std::string& text) { violations_.push_back(text); }
  CK_OBJECT_HANDLE NextObjectHandle() { return ++last_object_; }
  std::vector<Rule> TakeRules(const std::string& function);
  std::optional<SlotEvent> TakeEvent();
  SlotModel* FindSlot(CK_SLOT_ID id);
  SessionModel* FindSession(CK_SESSION_HANDLE handle);
  SessionModel& AddSession(SlotModel& slot, bool writable);
  void EndSession(CK_SESSION_HANDLE handle);
  std::list<SlotModel>& slots() { return slots_; }
  std::list<SessionModel>& sessions() { return sessions_; }
  bool traces_pins() const { return traces_pins_; }

  bool initialized = false;
  std::thread::id thread;  // The thread that called C_Initialize.

 private:
  std::list<SlotModel> slots_;
  std::list<SessionModel> sessions_;
  std::list<Rule> rules_;
  std::deque<SlotEvent> events_;
  std::vector<std::string> called_;
  std::vector<std::string> violations_;
  CK_SESSION_HANDLE last_session_ = 0;
  CK_OBJECT_HANDLE last_object_ = 0;
  bool traces_pins_ = false;
};

}  // namespace scripted
