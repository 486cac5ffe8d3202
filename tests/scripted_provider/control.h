// The world behind the scripted PKCS#11 provider, and what is to happen in it.
//
// The provider libraries are thin: they forward every call to this library, which the test links
// too. So a test and the provider share one World, which outlives each loading and unloading.
//
//   World& world = World::Instance();
//   world.Slot(1, "Reader").Token("Alice (PIN1)").Certificate("A");
//   world.On("C_FindObjects", 2).Return(CKR_DEVICE_ERROR);   // the second from now on
//   world.On("C_GetSlotList").After([&] { world.Slot(2).Token("Bob"); });
//   world.OnCall(7).Before([&] { world.Slot(1).Remove(); }); // the seventh call of any function
//   world.Event(1);                                          // a queued slot event
//
// Otherwise it behaves as PKCS#11 2.40 says, records every call in the Trace, and polices its
// caller: Violations() tells of calls out of order, of sessions and logins that were never ended,
// and of script lines that nobody came to read.
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

// What one call is to do beside, or instead of, its work.
struct Rule {
  // The call answers `rv`. With another value than CKR_OK it does nothing, but a call that ends
  // something (C_CloseSession, C_FindObjectsFinal, C_Logout, C_Finalize) still ends it.
  Rule& Return(CK_RV rv);
  // The call answers CKR_OK and does nothing, so that what it is to write stays as it was.
  Rule& Pretend();
  // The call does its work and then answers this length or number: the length of the first
  // attribute or of the signature, the number of slots or objects.
  Rule& Claim(CK_ULONG number);
  // The call does its work and then answers this session, object or slot.
  Rule& Handle(CK_ULONG handle);
  // Runs before the call looks at the world, or after it has answered.
  Rule& Before(std::function<void()> action);
  Rule& After(std::function<void()> action);
  // Holds for every later call, too.
  Rule& Always();

  std::string function;  // Empty: any.
  int calls_until = 1;
  bool always = false;
  bool used = false;
  bool pretends = false;
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
  // Puts a new token in, or gives the one that is there when called without a label.
  scripted::Token& Token(const std::string& label);
  scripted::Token& Token() { return *token; }
  // Takes the token out, with all sessions on it. Insert() puts it, or another, in again.
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
  bool lost = false;  // The token was taken out; the caller is still to close the session.
  std::optional<std::deque<CK_OBJECT_HANDLE>> search;
  std::shared_ptr<const RsaKey> signing_key;
};

class World {
 public:
  static World& Instance();
  // An empty world, whose provider is not loaded.
  void Reset();

  // The slot with this number, which is made when there is none; slots are listed in the order in
  // which they were made.
  SlotModel& Slot(CK_SLOT_ID id, const std::string& description = "Reader");

  // What is to happen at the n-th call of `function` from now on, or at the n-th of any function.
  Rule& On(const std::string& function, int nth = 1);
  Rule& OnCall(int nth) { return On(std::string(), nth); }
  // Forgets all rules and events that have not been used.
  void ClearScript();

  // Answers of C_WaitForSlotEvent, in order; CKR_NO_EVENT when there are none left.
  void Event(CK_SLOT_ID slot) { events_.push_back({CKR_OK, slot}); }
  void NoEvent(CK_RV rv = CKR_NO_EVENT) { events_.push_back({rv, 0}); }

  // PINs stand in the trace as their length only, unless this is asked for.
  void TracePins() { traces_pins_ = true; }

  // How many calls there were since Reset(), in all and of one function.
  int calls() const { return static_cast<int>(called_.size()); }
  int calls(const std::string& function) const;

  // What the caller did wrong, and with `at_end` also what it left undone.
  std::vector<std::string> Violations(bool at_end = true) const;

  std::string manufacturer = Padded("Example Ltd", 32);  // 32 bytes each.
  std::string library_description = Padded("Scripted tokens", 32);

  // For the functions of the provider.
  struct SlotEvent {
    CK_RV rv;
    CK_SLOT_ID slot;
  };
  void Violation(const std::string& text) { violations_.push_back(text); }
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
  std::thread::id thread;  // The one that called C_Initialize.

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
