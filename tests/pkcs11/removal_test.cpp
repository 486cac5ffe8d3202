// The card is removed before each call in turn: every operation ends, leaves nothing open, and the
// module can still be used. At the end the provider reports calls that were out of order.
#include <functional>

#include "pkcs11/module_test.h"
#include "pkcs11/pin_pad.h"

namespace {

using testing::ElementsAre;

class RemovalTest : public ModuleTest {
 protected:
  void InsertCard() {
    provider.Slot(1)
        .Token("Alice")
        .UserPin("1234")
        .Certificate("A", "\x01")
        .Certificate("B;serial=02", "\x02")
        .PrivateKey("\x02", key_);
  }

  // Runs the operation with the card removed before its first call, then before its second, and so
  // on. Returns the number of calls that the operation makes.
  int RemoveBeforeEachCall(const std::function<void()>& operation) {
    for (int call = 1;; ++call) {
      SCOPED_TRACE("removed before call " + std::to_string(call));
      InsertCard();
      bool removed = false;
      provider.OnAnyCall(call).Before([&] {
        provider.Slot(1).Remove();
        removed = true;
      });
      operation();
      EXPECT_TRUE(provider.sessions().empty());
      EXPECT_EQ(host.certificates_alive(), 0u);
      EXPECT_THAT(provider.ViolationsSoFar(), ElementsAre());
      if (!removed) {
        provider.ClearScript();
        return call - 1;
      }
    }
  }

  std::shared_ptr<const support::RsaKey> key_ = support::RsaKey::Generate(1024);
};

TEST_F(RemovalTest, DuringListing) {
  Open();
  const int calls = RemoveBeforeEachCall([this] { module.GetCertificates(); });
  EXPECT_EQ(calls, 15);
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A", "B"));
}

TEST_F(RemovalTest, DuringSearch) {
  Open();
  const int calls = RemoveBeforeEachCall([this] { module.CertificatePresent("02"); });
  EXPECT_EQ(calls, 12);
  EXPECT_TRUE(module.CertificatePresent("02"));
}

TEST_F(RemovalTest, DuringSignature) {
  Open();
  int signatures = 0;
  const int calls = RemoveBeforeEachCall([&] {
    const unsigned char data[] = {1, 2, 3};
    unsigned char signature[128] = {};
    unsigned long length = sizeof signature;
    if (module.Sign("02", data, sizeof data, signature, &length, TypeUserPin, nullptr, nullptr))
      ++signatures;
    else
      EXPECT_EQ(length, sizeof signature) << "must not change on failure";
  });
  EXPECT_EQ(calls, 22);
  // Removed before C_Logout, before C_CloseSession, and not at all.
  EXPECT_EQ(signatures, 3);
}

}  // namespace
