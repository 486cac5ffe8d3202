// A host program whose callbacks and services throw, or whose callbacks report wrong lengths.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "faults/operations.h"

namespace faults {
namespace {

// The behaviour of the PIN callbacks.
struct UserScript {
  PKCS11Module* module = nullptr;
  int throwing_request = 0;  // 0: none.
  bool error_callback_throws = false;
  unsigned long length = 4;  // As reported for the PIN.
  int max_requests = 3;      // Later requests are cancelled.
  int num_requests = 0;
};

struct Thrown : std::runtime_error {
  Thrown() : std::runtime_error("from the callback") {}
};

bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
  UserScript& script = *static_cast<UserScript*>(data);
  ++script.num_requests;
  EXPECT_EQ(script.module->GetLibraryPath(), "direct");
  if (type != PIN_TYPE_UNLOCK) {
    // Overwrite the whole buffer.
    std::memset(buffer, 'x', *length);
    std::memcpy(buffer, type == PIN_TYPE_SO ? "12345678" : "1234", type == PIN_TYPE_SO ? 8 : 4);
    *length = type == PIN_TYPE_SO && script.length == 4 ? 8 : script.length;
  }
  if (script.num_requests == script.throwing_request)
    throw Thrown();
  return script.num_requests <= script.max_requests;
}

void Tell(pkcs11_pin_type, pkcs11_pin_error, void* data) {
  const UserScript& script = *static_cast<UserScript*>(data);
  EXPECT_EQ(script.module->GetLibraryPath(), "direct");
  if (script.error_callback_throws)
    throw Thrown();
}

class FaultyHostTest : public FaultsTest {
 protected:
  // Locks the user PIN of slot 2. Sign() then makes four requests: for consent, for the security
  // officer's PIN, for a new PIN, and for the PIN.
  void BeginLocked() {
    Begin();
    SetPins(provider);
    provider.Slot(2).Token().UserTriesLeft(0);
    script = UserScript();
    script.module = &module;
  }

  bool Sign() {
    length = sizeof signature;
    const unsigned char data[] = {'d', 'a', 't', 'a'};
    return module.Sign("02", data, sizeof data, signature, &length, Ask, Tell, &script);
  }

  UserScript script;
  unsigned char signature[200] = {};
  unsigned long length = 0;
};

TEST_F(FaultyHostTest, PassesExceptionFromAnyRequest) {
  for (int request = 1; request <= 4; ++request) {
    SCOPED_TRACE(request);
    BeginLocked();
    script.max_requests = 10;
    script.throwing_request = request;
    EXPECT_THROW(Sign(), Thrown);
    EXPECT_EQ(length, sizeof signature);
    ExpectNothingLeftOver();
    ExpectStillWorks();
  }
}

TEST_F(FaultyHostTest, PassesExceptionFromErrorCallback) {
  for (const char* function : {"C_Login", "C_InitPIN"}) {
    for (const CK_RV rv : {CKR_PIN_INCORRECT, CKR_PIN_INVALID, CKR_PIN_LOCKED}) {
      for (const bool locked : {false, true}) {
        SCOPED_TRACE(std::string(function) + ' ' + std::to_string(rv));
        BeginLocked();
        if (!locked)
          provider.Slot(2).Token().ReportedPinFlags(0);
        script.error_callback_throws = true;
        script.max_requests = 10;
        provider.On(function).Return(rv);
        EXPECT_THROW(Sign(), Thrown);
        provider.ClearScript();
        ExpectNothingLeftOver();
        ExpectStillWorks();
      }
    }
  }
}

TEST_F(FaultyHostTest, PassesPinOfUpTo128Bytes) {
  for (const unsigned long reported : {0UL, 4UL, 127UL, 128UL}) {
    Begin();
    SetPins(provider);
    script = {&module, 0, false, reported, 1, 0};
    EXPECT_EQ(Sign(), reported == 4);
    const std::string trace = scripted::Trace::Instance().Take();
    EXPECT_THAT(trace, testing::HasSubstr("USER, PIN of " + std::to_string(reported) + " bytes)"));
    ExpectNothingLeftOver();
    ExpectStillWorks();
  }
}

TEST_F(FaultyHostTest, RejectsPinLengthBeyondBuffer) {
  for (const unsigned long reported : {129UL, 1UL << 31, 1UL << 63, ~0UL}) {
    Begin();
    SetPins(provider);
    script = {&module, 0, false, reported, 1, 0};
    EXPECT_FALSE(Sign());
    EXPECT_EQ(FailureLines(), "Signature operation failed (7)\n");
    EXPECT_EQ(provider.num_calls("C_Login"), 0);
    EXPECT_EQ(script.num_requests, 1);
    ExpectNothingLeftOver();
    ExpectStillWorks();
  }
}

// An exception from a host service passes through the component.
class FaultyService : public FaultsTest, public testing::WithParamInterface<Operation> {
 protected:
  void Prepare() {
    Begin();
    module.AddFilter("|commonName=Example CA|0");
    GetParam().prepare(provider, module);
    scripted::Trace::Instance().Clear();
  }

  // Runs the operation, and returns true if it threw.
  bool Throws() {
    host.ExpectLostCertificates();  // In GetToken(), see docs/threat-model.md.
    bool thrown = false;
    try {
      User user;
      GetParam().act(module, user);
    } catch (const scripted_host::Thrown&) {
      thrown = true;
    }
    EXPECT_LE(provider.sessions().size(), GetParam().sessions);
    // If nothing was thrown, the host reports the unused request.
    EXPECT_EQ(host.Violations().size(), thrown ? 0u : 1u);
    for (const std::string& violation : host.Violations())
      EXPECT_THAT(violation, testing::HasSubstr("did not throw"));
    host.Reset();
    EndSessionsOfCaller();
    ExpectNothingLeftOver();
    module.ClearFilters();
    ExpectStillWorks();
    return thrown;
  }
};

TEST_P(FaultyService, PassesExceptionFromLog) {
  Prepare();
  User user;
  GetParam().act(module, user);
  const std::vector<std::string> lines = LogLines();
  EndSessionsOfCaller();
  for (const std::string& line : lines) {
    SCOPED_TRACE(line);
    Prepare();
    host.ThrowAtMessage(line.substr(3));
    EXPECT_TRUE(Throws());
  }
}

TEST_P(FaultyService, PassesExceptionFromAnyFunction) {
  const char* const kFunctions[] = {"Transcode",        "cert_alloc",
                                    "cert_parse",       "cert_subject",
                                    "cert_serial",      "cert_subject_attr",
                                    "cert_issuer_attr", "cert_is_ca",
                                    "cert_key_usage",   "cert_rsa_public_key_components",
                                    "LongToString",     "Strip"};
  Prepare();
  for (const char* function : kFunctions)
    host.Record(function);
  User user;
  GetParam().act(module, user);
  const std::vector<std::string> trace = scripted::Trace::Instance().lines();
  EndSessionsOfCaller();
  for (const char* function : kFunctions) {
    SCOPED_TRACE(function);
    const bool is_called = std::any_of(trace.begin(), trace.end(), [&](const std::string& line) {
      return line.rfind(std::string(function) + '(', 0) == 0;
    });
    Prepare();
    host.ThrowAtCall(function);
    EXPECT_EQ(Throws(), is_called);
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultyService, testing::ValuesIn(AllOperations()), TestName);

}  // namespace
}  // namespace faults
