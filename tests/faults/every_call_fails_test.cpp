// Each provider call of each operation fails with each value that the standard defines: once alone,
// and once together with all later calls.
#include <algorithm>
#include <cstdlib>

#include "faults/expected_outcome.h"
#include "support/ckr_names.h"

namespace faults {
namespace {

constexpr int kMostExtraCalls = 60;  // For more PINs and an unlock.

// Returns the values that call `k` fails with: all but CKR_OK. If CARDCERT_EVERY_NTH_RESULT is N,
// returns every N-th of them, starting at another one for each call, for slow tools like valgrind.
std::vector<CK_RV> Failures(std::size_t k) {
  const char* const text = std::getenv("CARDCERT_EVERY_NTH_RESULT");
  const std::size_t step = text != nullptr ? std::strtoul(text, nullptr, 10) : 1;
  std::vector<CK_RV> failures;
  std::size_t index = k;
  for (const CK_RV rv : support::AllCkrValues()) {
    if (rv != CKR_OK && index++ % step == 0)
      failures.push_back(rv);
  }
  return failures;
}

std::string LastLogLine() {
  const std::vector<std::string> lines = LogLines();
  return lines.empty() ? "" : lines.back().substr(3);
}

class EveryCallFails : public FaultsTest, public testing::WithParamInterface<Operation> {
 protected:
  // Prepares the provider and the module for the operation.
  void Prepare() {
    Begin();
    GetParam().prepare(provider, module);
    scripted::Trace::Instance().Clear();
    calls_before_ = provider.num_calls();
  }

  int calls() const { return provider.num_calls() - calls_before_; }

  // Checks that nothing is left over but the session that the operation returns to its caller, and
  // that the module still works.
  void ExpectInvariants(const std::string& result) {
    const Operation& operation = GetParam();
    const bool holds_session = operation.sessions > 0 && result != "not found";
    EXPECT_EQ(provider.sessions().size(), holds_session ? 1u : 0u);
    EXPECT_EQ(host.certificates_alive(), 0u);
    EXPECT_LE(calls(), static_cast<int>(operation.calls.size()) + kMostExtraCalls);
    EndSessionsOfCaller();
    ExpectNothingLeftOver();
    ExpectStillWorks();
  }

  // Returns how many of the calls before the k-th are of the same function.
  static int NumEarlier(std::size_t k) {
    const std::vector<CallRow>& calls = GetParam().calls;
    return static_cast<int>(std::count_if(calls.begin(),
                                          calls.begin() + static_cast<std::ptrdiff_t>(k),
                                          [k, &calls](const CallRow& row) {
                                            return row.function == std::string(calls[k].function);
                                          }));
  }

  // Returns true if the operation may never end when all calls from the k-th on return `rv`:
  // CKR_PIN_INCORRECT from C_GetTokenInfo starts another Login(), which fails in the same way. The
  // standard does not allow this result (PKCS#11 2.40, section 5.5).
  static bool IsEndless(std::size_t k, CK_RV rv) {
    const std::vector<CallRow>& calls = GetParam().calls;
    return rv == CKR_PIN_INCORRECT && std::any_of(calls.begin() + static_cast<std::ptrdiff_t>(k),
                                                  calls.end(), [](const CallRow& row) {
                                                    return row.handling == Handling::kBeforeLogin ||
                                                           row.handling == Handling::kUserLogin ||
                                                           row.handling == Handling::kSoLogin;
                                                  });
  }

  int calls_before_ = 0;
};

TEST_P(EveryCallFails, Alone) {
  const Operation& operation = GetParam();
  Prepare();
  User healthy_user;
  EXPECT_EQ(operation.act(module, healthy_user), operation.result);
  ASSERT_EQ(calls(), static_cast<int>(operation.calls.size()))
      << scripted::Trace::Instance().Take();
  const std::string healthy_last = LastLogLine();
  EndSessionsOfCaller();

  int combinations = 0;
  for (std::size_t k = 0; k < operation.calls.size(); ++k) {
    const CallRow& row = operation.calls[k];
    for (const CK_RV rv : Failures(k)) {
      SCOPED_TRACE(std::string(row.function) + ", call " + std::to_string(k + 1) + ", " +
                   support::CkrName(rv));
      Prepare();
      const int earlier = provider.num_calls(row.function);
      provider.OnAnyCall(static_cast<int>(k) + 1).Return(rv).Before([&, earlier] {
        EXPECT_EQ(provider.num_calls(row.function), earlier + 1 + NumEarlier(k))
            << "not the expected call";
      });
      User user;
      const std::string result = operation.act(module, user);
      const Outcome expected = ExpectedOutcome(operation, row, rv);
      EXPECT_EQ(result, expected.result);
      EXPECT_EQ(FailureLines(), expected.failures);
      EXPECT_EQ(LastLogLine(), expected.last.empty() ? healthy_last : expected.last);
      ExpectInvariants(result);
      ++combinations;
      if (HasFailure())
        FAIL() << "stopping after the first failure";
    }
  }
  std::printf("counted: %d combinations of a provider call and its failure\n", combinations);
}

TEST_P(EveryCallFails, WithAllLaterCalls) {
  const Operation& operation = GetParam();
  int combinations = 0;
  for (std::size_t k = 0; k < operation.calls.size(); ++k) {
    for (const CK_RV rv : Failures(k)) {
      if (IsEndless(k, rv))
        continue;
      SCOPED_TRACE("from call " + std::to_string(k + 1) + ", " + support::CkrName(rv));
      Prepare();
      provider.OnAnyCall(static_cast<int>(k) + 1).Return(rv).Always();
      User user;
      ExpectInvariants(operation.act(module, user));
      ++combinations;
      if (HasFailure())
        FAIL() << "stopping after the first failure";
    }
  }
  std::printf("counted: %d combinations in which all later calls fail, too\n", combinations);
}

INSTANTIATE_TEST_SUITE_P(Faults, EveryCallFails, testing::ValuesIn(AllOperations()), TestName);

}  // namespace
}  // namespace faults
