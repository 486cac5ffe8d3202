// Null pointers in place of the PIN callback and the error callback.
#include <csignal>

#include "faults/operations.h"

// Only in builds that measure coverage: writes the counters to their files.
extern "C" void __gcov_dump() __attribute__((weak));

namespace faults {
namespace {

using NullCallback = FaultsTest;
using NullCallbackDeathTest = FaultsTest;

const unsigned char kData[] = {'d', 'a', 't', 'a'};

// Writes the coverage of a program that aborts.
void WriteCoverageOnAbort() {
  std::signal(SIGABRT, [](int) {
    if (__gcov_dump != nullptr)
      __gcov_dump();
  });
}

// Login() without a PIN callback is a bug of the host program, which is stopped even in builds
// without assertions.
TEST_F(NullCallbackDeathTest, StopsLogin) {
  Begin();
  WriteCoverageOnAbort();
  for (const CK_USER_TYPE user_type : {CKU_USER, CKU_SO, CK_USER_TYPE{99}}) {
    EXPECT_DEATH(module.Login(1, 1, user_type, nullptr, nullptr, nullptr),
                 "the PIN callback is null");
  }
}

TEST_F(NullCallbackDeathTest, StopsUnlock) {
  Begin();
  WriteCoverageOnAbort();
  EXPECT_DEATH(module.Unlock(1, 1, nullptr, User::Tell, nullptr), "the PIN callback is null");
}

TEST_F(NullCallback, FailsSignatureThatRequiresPin) {
  Begin();
  SetPins(provider);
  unsigned char signature[200];
  unsigned long length = sizeof signature;
  EXPECT_FALSE(
      module.Sign("02", kData, sizeof kData, signature, &length, nullptr, nullptr, nullptr));
  EXPECT_EQ(FailureLines(), "Signature operation failed (160)\n");
  EXPECT_EQ(length, sizeof signature);
  EXPECT_EQ(provider.num_calls("C_Login"), 0);
  ExpectNothingLeftOver();
  ExpectStillWorks();
}

// With an error callback each of these failures is reported. Without one the result is the same.
TEST_F(NullCallback, IsAcceptedForErrors) {
  const std::pair<const char*, int> kCalls[] = {{"C_Login", 1},  // As security officer.
                                                {"C_InitPIN", 1},
                                                {"C_Login", 2}};  // As user.
  for (const auto& [function, nth] : kCalls) {
    for (const CK_RV rv : {CKR_PIN_INCORRECT, CKR_PIN_LEN_RANGE, CKR_PIN_LOCKED}) {
      SCOPED_TRACE(std::string(function) + ' ' + std::to_string(nth) + ' ' + std::to_string(rv));
      std::vector<bool> results;
      for (const error_cb tell : {&User::Tell, static_cast<error_cb>(nullptr)}) {
        Begin();
        SetPins(provider);
        provider.Slot(2).Token().UserTriesLeft(0);
        provider.On(function, nth).Return(rv);
        User user;
        unsigned char signature[200];
        unsigned long length = sizeof signature;
        results.push_back(
            module.Sign("02", kData, sizeof kData, signature, &length, User::Ask, tell, &user));
        // The locked PIN is reported, too.
        EXPECT_EQ(user.num_errors > 1, tell != nullptr);
        ExpectNothingLeftOver();
        ExpectStillWorks();
      }
      EXPECT_EQ(results[0], results[1]);
    }
  }
}

}  // namespace
}  // namespace faults
