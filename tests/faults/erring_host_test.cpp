// A host program whose callbacks and services err.
#include <cstring>
#include <stdexcept>

#include "faults/operations.h"

namespace faults {
namespace {

// What the user's callbacks are told to do.
struct Mischief {
  PKCS11Module* module = nullptr;
  int throw_at = 0;  // The request that throws.
  bool tell_throws = false;
  unsigned long length = 4;
  unsigned long limit = 3;  // So many requests, and then a cancel.
  int requests = 0;
};

struct Thrown : std::runtime_error {
  Thrown() : std::runtime_error("from the callback") {}
};

bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
  Mischief& mischief = *static_cast<Mischief*>(data);
  ++mischief.requests;
  EXPECT_EQ(mischief.module->GetLibraryPath(), "direct");
  if (type != PIN_TYPE_UNLOCK) {
    // Scribbles over all of it.
    std::memset(buffer, 'x', *length);
    std::memcpy(buffer, type == PIN_TYPE_SO ? "12345678" : "1234", type == PIN_TYPE_SO ? 8 : 4);
    *length = type == PIN_TYPE_SO && mischief.length == 4 ? 8 : mischief.length;
  }
  if (mischief.requests == mischief.throw_at)
    throw Thrown();
  return static_cast<unsigned long>(mischief.requests) <= mischief.limit;
}

void Tell(pkcs11_pin_type, pkcs11_pin_error, void* data) {
  const Mischief& mischief = *static_cast<Mischief*>(data);
  EXPECT_EQ(mischief.module->GetLibraryPath(), "direct");
  if (mischief.tell_throws)
    throw Thrown();
}

class ErringHost : public FaultsTest {
 protected:
  // The user PIN of slot 2 is locked: consent, the security officer's PIN, a new PIN, the PIN.
  void BeginLocked() {
    Begin();
    SetPins(provider);
    provider.Slot(2).Token().UserTriesLeft(0);
    mischief = Mischief();
    mischief.module = &module;
  }

  bool Sign() {
    length = sizeof signature;
    const unsigned char data[] = {'d', 'a', 't', 'a'};
    return module.Sign("02", data, sizeof data, signature, &length, Ask, Tell, &mischief);
  }

  Mischief mischief;
  unsigned char signature[200] = {};
  unsigned long length = 0;
};

TEST_F(ErringHost, AnExceptionFromAnyRequestPassesAndLeavesNothingOpen) {
  for (int request = 1; request <= 4; ++request) {
    SCOPED_TRACE(request);
    BeginLocked();
    mischief.limit = 10;
    mischief.throw_at = request;
    EXPECT_THROW(Sign(), Thrown);
    EXPECT_EQ(length, sizeof signature);
    ExpectBalance();
    ExpectStillWorks();
  }
}

TEST_F(ErringHost, AnExceptionFromTheErrorCallbackPassesAndLeavesNothingOpen) {
  for (const char* function : {"C_Login", "C_InitPIN"}) {
    for (const CK_RV rv : {CKR_PIN_INCORRECT, CKR_PIN_INVALID, CKR_PIN_LOCKED}) {
      for (const bool locked : {false, true}) {
        SCOPED_TRACE(std::string(function) + ' ' + std::to_string(rv));
        BeginLocked();
        if (!locked)
          provider.Slot(2).Token().ReportedPinFlags(0);
        mischief.tell_throws = true;
        mischief.limit = 10;
        provider.On(function).Return(rv);
        EXPECT_THROW(Sign(), Thrown);
        provider.ClearScript();
        ExpectBalance();
        ExpectStillWorks();
      }
    }
  }
}

TEST_F(ErringHost, AnyLengthUpTo128IsPassedOn) {
  for (const unsigned long told : {0UL, 4UL, 127UL, 128UL}) {
    Begin();
    SetPins(provider);
    mischief = {&module, 0, false, told, 1, 0};
    EXPECT_EQ(Sign(), told == 4);
    const std::string trace = scripted::Trace::Instance().Take();
    EXPECT_THAT(trace, testing::HasSubstr("USER, PIN of " + std::to_string(told) + " bytes)"));
    ExpectBalance();
    ExpectStillWorks();
  }
}

TEST_F(ErringHost, ALengthBeyondTheBufferReachesNoToken) {
  for (const unsigned long told : {129UL, 1UL << 31, 1UL << 63, ~0UL}) {
    Begin();
    SetPins(provider);
    mischief = {&module, 0, false, told, 1, 0};
    EXPECT_FALSE(Sign());
    EXPECT_EQ(FailureLines(), "Signature operation failed (7)\n");
    EXPECT_EQ(provider.num_calls("C_Login"), 0);
    EXPECT_EQ(mischief.requests, 1);
    ExpectBalance();
    ExpectStillWorks();
  }
}

// What a host service throws passes through the component.
class ErringService : public FaultsTest, public testing::WithParamInterface<Operation> {
 protected:
  void Prepare() {
    Begin();
    module.AddFilter("|commonName=Example CA|0");
    GetParam().prepare(provider, module);
    scripted::Trace::Instance().Clear();
  }

  // Runs the operation; whether the exception came out of it.
  bool Throws() {
    host.ExpectLostCertificates();  // By GetToken, see docs/threat-model.md.
    bool thrown = false;
    try {
      User user;
      GetParam().act(module, user);
    } catch (const scripted_host::Thrown&) {
      thrown = true;
    }
    EXPECT_LE(provider.sessions().size(), GetParam().sessions);
    // Only what was never called did not throw.
    EXPECT_EQ(host.Violations().size(), thrown ? 0u : 1u);
    for (const std::string& violation : host.Violations())
      EXPECT_THAT(violation, testing::HasSubstr("did not throw"));
    host.Reset();
    Finish();
    ExpectBalance();
    module.ClearFilters();
    ExpectStillWorks();
    return thrown;
  }
};

TEST_P(ErringService, AnExceptionFromTheLogPassesAndLeavesNothingOpen) {
  Prepare();
  User user;
  GetParam().act(module, user);
  const std::vector<std::string> lines = LogLines();
  Finish();
  for (const std::string& line : lines) {
    SCOPED_TRACE(line);
    Prepare();
    host.ThrowAtMessage(line.substr(3));
    EXPECT_TRUE(Throws());
  }
}

TEST_P(ErringService, AnExceptionFromAnyServicePassesAndLeavesNothingOpen) {
  for (const char* service :
       {"Transcode", "cert_alloc", "cert_parse", "cert_subject", "cert_serial", "cert_subject_attr",
        "cert_issuer_attr", "cert_is_ca", "cert_key_usage", "cert_rsa_public_key_components",
        "LongToString", "Strip"}) {
    SCOPED_TRACE(service);
    Prepare();
    host.ThrowAtCall(service);
    Throws();
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, ErringService, testing::ValuesIn(AllOperations()), TestName);

}  // namespace
}  // namespace faults
