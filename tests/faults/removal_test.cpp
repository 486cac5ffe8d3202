// Cards that are removed during an operation.
#include "faults/operations.h"

namespace faults {
namespace {

// Before each call of each operation a card is removed. It is inserted again afterwards.
class Removal : public FaultsTest, public testing::WithParamInterface<Operation> {};

TEST_P(Removal, BeforeEachCallLeavesNothingOpen) {
  const Operation& operation = GetParam();
  for (int k = 1; k <= static_cast<int>(operation.calls.size()); ++k) {
    for (const CK_SLOT_ID slot : {1UL, 2UL}) {
      SCOPED_TRACE("call " + std::to_string(k) + ", slot " + std::to_string(slot));
      Begin();
      operation.prepare(provider, module);
      std::shared_ptr<scripted::Token> removed;
      provider.OnAnyCall(k).Before([&] { removed = provider.Slot(slot).Remove(); });
      User user;
      operation.act(module, user);
      provider.ClearScript();
      while (!provider.sessions().empty() && operation.sessions > 0)
        module.function_list->C_CloseSession(provider.sessions().front().handle);
      ExpectNothingLeftOver();
      if (removed)
        provider.Slot(slot).Insert(removed);
      ExpectStillWorks();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, Removal, testing::ValuesIn([] {
                           std::vector<Operation> operations_that_log_out;
                           for (const Operation& operation : AllOperations()) {
                             // Login() leaves the logout to its caller.
                             if (std::string(operation.name).rfind("Login", 0) != 0)
                               operations_that_log_out.push_back(operation);
                           }
                           return operations_that_log_out;
                         }()),
                         TestName);

}  // namespace
}  // namespace faults
