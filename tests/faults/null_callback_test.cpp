// Callbacks that are null.
#include <csignal>

#include "faults/operations.h"

// There in builds that measure coverage: writes down what has been reached.
extern "C" void __gcov_dump() __attribute__((weak));

namespace faults {
namespace {

using NullCallback = FaultsTest;
using NullCallbackDeathTest = FaultsTest;

const unsigned char kData[] = {'d', 'a', 't', 'a'};

// What a program reaches that is about to stop counts, too.
void CountWhatStops() {
  std::signal(SIGABRT, [](int) {
    if (__gcov_dump != nullptr)
      __gcov_dump();
  });
}

// A login without anybody to ask is a fault of the host program. It stops here, in builds without
// assertions, too.
TEST_F(NullCallbackDeathTest, StopsALogin) {
  Begin();
  CountWhatStops();
  for (const CK_USER_TYPE user_type : {CKU_USER, CKU_SO, CK_USER_TYPE{99}}) {
    EXPECT_DEATH(module.Login(1, 1, user_type, nullptr, nullptr, nullptr),
                 "the PIN callback is null");
  }
}

TEST_F(NullCallbackDeathTest, StopsAnUnlock) {
  Begin();
  CountWhatStops();
  EXPECT_DEATH(module.Unlock(1, 1, nullptr, User::Tell, nullptr), "the PIN callback is null");
}

TEST_F(NullCallback, ThatAsksForAPinFailsASignatureThatNeedsOne) {
  Begin();
  SetPins(provider);
  unsigned char signature[200];
  unsigned long length = sizeof signature;
  EXPECT_FALSE(
      module.Sign("02", kData, sizeof kData, signature, &length, nullptr, nullptr, nullptr));
  EXPECT_EQ(FailureLines(), "Signature operation failed (160)\n");
  EXPECT_EQ(length, sizeof signature);
  EXPECT_EQ(provider.num_calls("C_Login"), 0);
  ExpectBalance();
  ExpectStillWorks();
}

// Whatever there is to tell: a wrong PIN, one of wrong form, a locked one, and the same of the
// security officer's and of a new one.
TEST_F(NullCallback, ThatTellsOfErrorsIsNotMissed) {
  for (const char* function : {"C_Login", "C_InitPIN"}) {
    for (const int nth : {1, 2}) {
      for (const CK_RV rv : {CKR_PIN_INCORRECT, CKR_PIN_LEN_RANGE, CKR_PIN_LOCKED}) {
        SCOPED_TRACE(std::string(function) + ' ' + std::to_string(nth) + ' ' + std::to_string(rv));
        Begin();
        SetPins(provider);
        provider.Slot(2).Token().UserTriesLeft(0);
        provider.On(function, nth).Return(rv);
        User user;
        unsigned char signature[200];
        unsigned long length = sizeof signature;
        module.Sign("02", kData, sizeof kData, signature, &length, User::Ask, nullptr, &user);
        EXPECT_EQ(user.told, 0);
        provider.ClearScript();
        ExpectBalance();
        ExpectStillWorks();
      }
    }
  }
}

}  // namespace
}  // namespace faults
