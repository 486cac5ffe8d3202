// Cards that are taken out while the component is at work.
#include "faults/operations.h"

namespace faults {
namespace {

// A card is pulled out before each of the calls of each operation, and put in again afterwards.
class Removal : public FaultsTest, public testing::WithParamInterface<Operation> {};

TEST_P(Removal, BeforeAnyCall) {
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
      ExpectBalance();
      if (removed)
        provider.Slot(slot).Insert(removed);
      ExpectStillWorks();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, Removal, testing::ValuesIn([] {
                           std::vector<Operation> with_logout_in_the_end;
                           for (const Operation& operation : AllOperations()) {
                             // Login alone leaves the login to its caller, who is not there to end
                             // it.
                             if (std::string(operation.name).rfind("Login", 0) != 0)
                               with_logout_in_the_end.push_back(operation);
                           }
                           return with_logout_in_the_end;
                         }()),
                         TestName);

}  // namespace
}  // namespace faults
