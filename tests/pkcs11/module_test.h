// The fixture of the component's tests, which run it between a scripted provider and a scripted
// host. A test sets up slots and tokens, calls an operation, and compares everything that happened:
//
//   TEST_F(ListingTest, SkipsUnreadableCertificate) {
//     provider.Slot(1, "Reader").Token("Alice (PIN1)").Certificate("A").Certificate("B;serial=02");
//     provider.On("C_GetAttributeValue").Return(CKR_DEVICE_ERROR);   // The next call.
//     Open();                                                     // The trace begins here.
//     EXPECT_THAT(Names(module.GetToken(1)), ElementsAre("B"));
//     EXPECT_TRACE(R"(
//       C_GetSlotInfo(slot 1) = OK
//       log 5: Getting token for slot 1 on 'Reader'
//       ...
//       cert_free(B)
//     )");
//   }
//
// The trace is one sequence of
//   provider calls   C_OpenSession(slot 1, SERIAL) = OK, session 1
//   log lines        log 5: Getting certificates for slot 1
//   certificates     cert_alloc(), cert_parse(A) = 0, cert_free(A); after host.RecordInspection()
//                    also the calls that read their fields
//   loading          dlopen(scripted.so, RTLD_LAZY) = OK, dlsym(...), dlerror(),
//                    dlclose(scripted.so), unloaded
//   callbacks        whatever the test adds with scripted::Trace::Instance().Add()
// Slots have the numbers that the test gave them; sessions and objects are counted from 1. Control
// characters, and a blank at the end of a line, are written as \xHH. The functions in expected.h
// return the parts of traces that many tests share.
//
// The script is described in scripted_provider/provider.h (slots, tokens, failures),
// scripted_provider/token.h (PINs, objects), scripted_host/scripted_certificate.h (the text of a
// certificate) and scripted_host/scripted_host.h (exceptions, failed allocations).
//
// At its end a test also fails for a call out of order or on a closed session, a session or login
// that was not ended, a certificate that was not freed exactly once, memory from malloc that was
// not freed, and a line of the script that was not used.
#pragma once

#include "pkcs11/malloc_wrap.h"
#include "pkcs11/provider_test.h"
#include "scripted_host/scripted_host.h"

class ModuleTest : public ProviderTest {
 protected:
  ModuleTest() : host(scripted_host::Host::Instance()) { host.Reset(); }

  void TearDown() override {
    ProviderTest::TearDown();
    EXPECT_EQ(MallocsAlive(), mallocs_before_) << "memory from malloc was not freed";
    for (const std::string& violation : host.Violations())
      ADD_FAILURE() << violation;
    host.Reset();
  }

  scripted_host::Host& host;

 private:
  const std::size_t mallocs_before_ = MallocsAlive();
};

using scripted_host::Thrown;

// A certificate of the scripted host, for operations that take one. Leaves no trace when it is
// made.
class Parsed {
 public:
  explicit Parsed(const std::string& text) : cert_(cert_alloc()) {
    EXPECT_EQ(cert_parse(text.data(), static_cast<long>(text.size()), cert_), 0) << text;
    scripted::Trace::Instance().Clear();
  }
  ~Parsed() { cert_free(cert_); }
  Parsed(const Parsed&) = delete;
  Parsed& operator=(const Parsed&) = delete;

  operator const certificate*() const { return cert_; }

 private:
  certificate* cert_;
};
