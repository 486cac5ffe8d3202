// The card is pulled out between any two calls: every operation ends, leaves nothing open and lets
// the module go on working. The provider's policing sees to the rest.
#include <functional>

#include "pkcs11/module_test.h"
#include "pkcs11/pin_pad.h"

namespace {

using testing::ElementsAre;

class Removal : public ModuleTest {
 protected:
  // A fresh card each time, as if it had been put in again.
  void InsertCard() {
    provider.Slot(1)
        .Token("Alice")
        .UserPin("1234")
        .Certificate("A", "\x01")
        .Certificate("B;serial=02", "\x02")
        .PrivateKey("\x02", key_);
  }

  // Runs the operation with the card pulled out before its first, second, ... call, until it has no
  // such call any more. Gives the number of calls that it has.
  int PullOutBeforeEachCall(const std::function<void()>& operation) {
    for (int call = 1;; ++call) {
      SCOPED_TRACE("pulled out before call " + std::to_string(call));
      InsertCard();
      bool pulled_out = false;
      provider.OnAnyCall(call).Before([&] {
        provider.Slot(1).Remove();
        pulled_out = true;
      });
      operation();
      EXPECT_TRUE(provider.sessions().empty());
      EXPECT_EQ(host.certificates_alive(), 0u);
      EXPECT_THAT(provider.ViolationsSoFar(), ElementsAre());
      if (!pulled_out) {
        provider.ClearScript();
        return call - 1;
      }
    }
  }

  std::shared_ptr<const support::RsaKey> key_ = support::RsaKey::Generate(1024);
};

TEST_F(Removal, DuringAList) {
  Open();
  const int calls = PullOutBeforeEachCall([this] { module.GetCertificates(); });
  EXPECT_EQ(calls, 15);
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A", "B"));
}

TEST_F(Removal, DuringASearch) {
  Open();
  const int calls = PullOutBeforeEachCall([this] { module.CertificatePresent("02"); });
  EXPECT_EQ(calls, 12);
  EXPECT_TRUE(module.CertificatePresent("02"));
}

TEST_F(Removal, DuringASignature) {
  Open();
  int signatures = 0;
  const auto ask = [](pkcs11_pin_type, unsigned char* buffer, unsigned long* length, void*) {
    const std::string pin = "1234";
    pin.copy(reinterpret_cast<char*>(buffer), pin.size());
    *length = pin.size();
    return true;
  };
  const int calls = PullOutBeforeEachCall([&] {
    const unsigned char data[] = {1, 2, 3};
    unsigned char signature[128] = {};
    unsigned long length = sizeof signature;
    if (module.Sign("02", data, sizeof data, signature, &length, ask, nullptr, nullptr))
      ++signatures;
    else
      EXPECT_EQ(length, sizeof signature) << "as it was";
  });
  EXPECT_EQ(calls, 22);
  // Too late to matter: before C_Logout, before C_CloseSession, and not at all.
  EXPECT_EQ(signatures, 3);
}

}  // namespace
