// No copy of a PIN is left in memory after an operation, whatever its outcome.
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

// A user who types the secret as one type of PIN, and "11111111" as the others. Counts the copies
// of the secret in memory at several points of the operation.
struct Typist {
  const Secret* secret = nullptr;
  const WritableMemory* memory = nullptr;
  pkcs11_pin_type secret_type = PIN_TYPE_USER;
  enum Action { kAgrees, kCancels, kThrows, kClaimsTooMuch };
  Action then = kAgrees;  // After it has written the secret.
  bool throws_in_error_callback = false;
  // The number of copies:
  std::size_t in_buffer = 0;        // After the secret was written into the component's buffer.
  std::size_t at_message = 0;       // At a later log message (the maximum).
  std::size_t at_error_report = 0;  // In the error callback.
  std::size_t at_next_request = 0;  // At a later request (the maximum).
  std::size_t at_logout = 0;
  bool error_reported = false;

  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
    Typist& typist = *static_cast<Typist*>(data);
    if (typist.in_buffer > 0)
      typist.at_next_request =
          std::max(typist.at_next_request, typist.memory->Count(*typist.secret));
    if (type == PIN_TYPE_UNLOCK)
      return true;
    if (type != typist.secret_type) {
      std::fill(buffer, buffer + 8, '1');
      *length = 8;
      return true;
    }
    if (typist.error_reported)
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
    typist.at_error_report = typist.memory->Count(*typist.secret);
    // An error of the new PIN is reported with PIN_TYPE_USER.
    if (type != typist.secret_type &&
        !(type == PIN_TYPE_USER && typist.secret_type == PIN_TYPE_NEW_USER))
      return;
    typist.error_reported = true;
    if (typist.throws_in_error_callback)
      throw std::runtime_error("the error callback");
  }
};

// Messages about a PIN are logged after the token has received it.
void CountAtMessage(Typist& typist) {
  if (typist.in_buffer > 0)
    typist.at_message = std::max(typist.at_message, typist.memory->Count(*typist.secret));
}

// How the operation ends. `set_up` is given the call that gets the secret.
using SetUp = std::function<void(Typist&, scripted::Provider&, const char* call)>;

struct Outcome {
  const char* name;
  SetUp set_up;
  bool succeeds = false;
};

SetUp CallReturns(CK_RV rv) {
  return [rv](Typist&, scripted::Provider& provider, const char* call) {
    provider.On(call).Return(rv);
  };
}

SetUp PinCallback(Typist::Action action) {
  return [action](Typist& typist, scripted::Provider&, const char*) { typist.then = action; };
}

const Outcome kOutcomes[] = {
    {"Success", [](Typist&, scripted::Provider&, const char*) {}, true},
    {"Wrong", CallReturns(CKR_PIN_INCORRECT)},
    {"WrongForm", CallReturns(CKR_PIN_LEN_RANGE)},
    {"Locked", CallReturns(CKR_PIN_LOCKED)},
    {"ProviderError", CallReturns(CKR_DEVICE_ERROR)},
    {"Cancelled", PinCallback(Typist::kCancels)},
    {"ExceptionFromTheCallback", PinCallback(Typist::kThrows)},
    {"ExceptionFromTheErrorCallback",
     [](Typist& typist, scripted::Provider& provider, const char* call) {
       typist.throws_in_error_callback = true;
       provider.On(call).Return(CKR_PIN_LEN_RANGE);
     }},
    {"ClaimBeyondTheBuffer", PinCallback(Typist::kClaimsTooMuch)},
};

using Case = std::tuple<pkcs11_pin_type, Outcome>;

class PinHygiene : public SessionTest, public testing::WithParamInterface<Case> {};

// Otherwise GoogleTest prints the bytes of the std::function.
void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.name;
}

TEST_P(PinHygiene, LeavesNoCopyOfPin) {
#ifdef UNDER_ASAN
  GTEST_SKIP() << "AddressSanitizer moves locals to memory of its own, which cannot be read";
#endif
  const auto& [type, outcome] = GetParam();
  const Secret secret;
  constexpr char kOtherPins[] = "11111111";
  scripted::Token& token = AddToken().UserPin(kOtherPins).SoPin(kOtherPins).PinLengths(4, 128);
  if (type == PIN_TYPE_USER)
    token.user_pin.SetComplement(secret.Complement(), 3);
  else
    token.UserTriesLeft(0);  // Makes Unlock() ask for the security officer's PIN and a new one.
  if (type == PIN_TYPE_SO)
    token.so_pin.SetComplement(secret.Complement(), 3);
  OpenSession();

  // Constructed before the operation, so that it cannot overwrite what the operation leaves behind.
  const WritableMemory memory;
  Typist typist;
  typist.secret = &secret;
  typist.memory = &memory;
  typist.secret_type = type;
  outcome.set_up(typist, provider, type == PIN_TYPE_NEW_USER ? "C_InitPIN" : "C_Login");
  host.OnMessage([&typist] { CountAtMessage(typist); });
  if (type == PIN_TYPE_NEW_USER)
    provider.On("C_Logout").Before([&] { typist.at_logout = memory.Count(secret); });
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
  EXPECT_EQ(typist.in_buffer, 1u) << "the scan must find the copy in the buffer";
  EXPECT_EQ(typist.at_message, 0u);
  EXPECT_EQ(typist.at_error_report, 0u);
  EXPECT_EQ(typist.at_next_request, 0u);
  EXPECT_EQ(typist.at_logout, 0u);
  EXPECT_EQ(left, 0u);
  EXPECT_EQ(WritableMemory().Count(secret), 0u);
  for (const std::string& line : scripted::Trace::Instance().lines())
    EXPECT_EQ(line.find(kOtherPins), std::string::npos) << line;
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

TEST(MemoryScan, FindsCopiesOnHeapOnStackAndInStaticData) {
#ifdef UNDER_ASAN
  GTEST_SKIP() << "the memory of AddressSanitizer cannot be read";
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
