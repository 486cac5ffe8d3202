// No copy of a PIN is left in memory once an operation is over, whatever its outcome.
#include <stdexcept>

#include "pkcs11/memory_scan.h"
#include "pkcs11/session_test.h"
#include "support/ckr_names.h"

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ASAN 1
#endif
#endif

namespace {

// A user who types the secret for one type of PIN, and what was set up for all others.
struct Typist {
  const Secret* secret = nullptr;
  const WritableMemory* memory = nullptr;
  pkcs11_pin_type secret_type = PIN_TYPE_USER;
  enum { kAgrees, kCancels, kThrows, kClaimsTooMuch } then = kAgrees;
  bool throws_when_told = false;
  std::size_t in_buffer = 0;    // Copies while the secret is in the component's buffer.
  std::size_t when_logged = 0;  // The most copies at a message after that.
  std::size_t when_told = 0;    // Copies when the user is told what was wrong.
  std::size_t when_asked = 0;   // The most copies at a request after that.
  std::size_t when_logged_out = 0;
  bool was_told = false;

  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
    Typist& typist = *static_cast<Typist*>(data);
    if (typist.in_buffer > 0)
      typist.when_asked = std::max(typist.when_asked, typist.memory->Count(*typist.secret));
    if (type == PIN_TYPE_UNLOCK)
      return true;
    if (type != typist.secret_type) {
      std::fill(buffer, buffer + 8, '1');
      *length = 8;
      return true;
    }
    if (typist.was_told)  // Once is enough.
      return false;
    typist.secret->WriteTo(buffer);
    *length = Secret::kLength;
    typist.in_buffer = typist.memory->Count(*typist.secret);
    switch (typist.then) {
      case kAgrees:
        return true;
      case kCancels:
        return false;
      case kThrows:
        throw std::runtime_error("the callback");
      case kClaimsTooMuch:
        *length = 129;
        return true;
    }
    return false;
  }

  static void Tell(pkcs11_pin_type type, pkcs11_pin_error, void* data) {
    Typist& typist = *static_cast<Typist*>(data);
    typist.when_told = typist.memory->Count(*typist.secret);
    // A new PIN that is refused is told of as the user's.
    if (type != typist.secret_type &&
        !(type == PIN_TYPE_USER && typist.secret_type == PIN_TYPE_NEW_USER))
      return;
    typist.was_told = true;
    if (typist.throws_when_told)
      throw std::runtime_error("the error callback");
  }
};

// Whatever a message says of a PIN, the token has consumed it by then.
void Logged(Typist& typist) {
  if (typist.in_buffer > 0)
    typist.when_logged = std::max(typist.when_logged, typist.memory->Count(*typist.secret));
}

struct Outcome {
  const char* name;
  std::function<void(Typist&, scripted::Provider&, const char* call)> set_up;
  bool succeeds;
};

const Outcome kOutcomes[] = {
    {"Success", [](Typist&, scripted::Provider&, const char*) {}, true},
    {"Wrong",
     [](Typist&, scripted::Provider& provider, const char* call) {
       provider.On(call).Return(CKR_PIN_INCORRECT);
     },
     false},
    {"WrongForm",
     [](Typist&, scripted::Provider& provider, const char* call) {
       provider.On(call).Return(CKR_PIN_LEN_RANGE);
     },
     false},
    {"Locked",
     [](Typist&, scripted::Provider& provider, const char* call) {
       provider.On(call).Return(CKR_PIN_LOCKED);
     },
     false},
    {"ProviderError",
     [](Typist&, scripted::Provider& provider, const char* call) {
       provider.On(call).Return(CKR_DEVICE_ERROR);
     },
     false},
    {"Cancelled",
     [](Typist& typist, scripted::Provider&, const char*) { typist.then = Typist::kCancels; },
     false},
    {"ExceptionFromTheCallback",
     [](Typist& typist, scripted::Provider&, const char*) { typist.then = Typist::kThrows; },
     false},
    {"ExceptionFromTheErrorCallback",
     [](Typist& typist, scripted::Provider& provider, const char* call) {
       typist.throws_when_told = true;
       provider.On(call).Return(CKR_PIN_LEN_RANGE);
     },
     false},
    {"ClaimBeyondTheBuffer",
     [](Typist& typist, scripted::Provider&, const char*) { typist.then = Typist::kClaimsTooMuch; },
     false},
};

using Case = std::tuple<pkcs11_pin_type, Outcome>;

class PinHygiene : public SessionTest, public testing::WithParamInterface<Case> {};

// GoogleTest would print the std::function's bytes.
void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.name;
}

TEST_P(PinHygiene, LeavesNoCopyOfThePin) {
#ifdef UNDER_ASAN
  GTEST_SKIP() << "AddressSanitizer's own memory cannot be read, and locals are moved to it";
#endif
  const auto& [type, outcome] = GetParam();
  const Secret secret;
  constexpr char kOthers[] = "11111111";
  scripted::Token& token = AddToken().UserPin(kOthers).SoPin(kOthers).PinLengths(4, 128);
  if (type == PIN_TYPE_USER)
    token.user_pin.SetComplement(secret.Complement(), 3);
  else
    token.UserTriesLeft(0);  // The way to the security officer's PIN and to the new one.
  if (type == PIN_TYPE_SO)
    token.so_pin.SetComplement(secret.Complement(), 3);
  OpenSession();

  // Before the operation, so that nothing but the search lies between its end and the search.
  const WritableMemory memory;
  Typist typist;
  typist.secret = &secret;
  typist.memory = &memory;
  typist.secret_type = type;
  outcome.set_up(typist, provider, type == PIN_TYPE_NEW_USER ? "C_InitPIN" : "C_Login");
  host.OnMessage([&typist] { Logged(typist); });
  if (type == PIN_TYPE_NEW_USER)
    provider.On("C_Logout").Before([&] { typist.when_logged_out = memory.Count(secret); });
  CK_RV rv = CKR_GENERAL_ERROR;
  std::size_t left = 0;
  try {
    rv = type == PIN_TYPE_USER
             ? module.Login(session, 1, CKU_USER, Typist::Ask, Typist::Tell, &typist)
             : module.Unlock(session, 1, Typist::Ask, Typist::Tell, &typist);
    left = memory.Count(secret);
  } catch (const std::runtime_error&) {
    left = memory.Count(secret);
  }
  host.OnMessage(nullptr);
  EXPECT_EQ(rv == CKR_OK, outcome.succeeds) << support::CkrName(rv);
  EXPECT_EQ(typist.in_buffer, 1u) << "the search itself does not work";
  EXPECT_EQ(typist.when_logged, 0u);
  EXPECT_EQ(typist.when_told, 0u);
  EXPECT_EQ(typist.when_asked, 0u);
  EXPECT_EQ(typist.when_logged_out, 0u);
  EXPECT_EQ(left, 0u);
  EXPECT_EQ(WritableMemory().Count(secret), 0u);
  for (const std::string& line : scripted::Trace::Instance().lines())
    EXPECT_EQ(line.find(kOthers), std::string::npos) << line;
}

std::string CaseName(const testing::TestParamInfo<Case>& info) {
  const char* const type_names[] = {"User", "So", "Unlock", "NewUser"};
  return std::string(type_names[std::get<0>(info.param)]) + std::get<1>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(EveryPin, PinHygiene,
                         testing::Combine(testing::Values(PIN_TYPE_USER, PIN_TYPE_SO,
                                                          PIN_TYPE_NEW_USER),
                                          testing::ValuesIn(kOutcomes)),
                         CaseName);

TEST(MemoryScan, FindsACopyOnTheHeapOnTheStackAndInStaticData) {
#ifdef UNDER_ASAN
  GTEST_SKIP() << "AddressSanitizer's own memory cannot be read";
#endif
  const Secret secret;
  static unsigned char static_copy[Secret::kLength];
  unsigned char stack_copy[Secret::kLength];
  const std::unique_ptr<unsigned char[]> heap_copy(new unsigned char[Secret::kLength]);
  const WritableMemory memory;
  EXPECT_EQ(memory.Count(secret), 0u);
  for (unsigned char* copy : {static_copy, stack_copy, heap_copy.get()}) {
    secret.WriteTo(copy);
    EXPECT_EQ(memory.Count(secret), 1u);
    explicit_bzero(copy, Secret::kLength);
    EXPECT_EQ(memory.Count(secret), 0u);
  }
}

}  // namespace
