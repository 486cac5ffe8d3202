// GetTokenCertificate: reading one certificate object, from a provider that may lie of its length.
#include <climits>

#include "pkcs11/malloc_wrap.h"
#include "pkcs11/module_test.h"

namespace {

// One certificate object at a time, in a session of the test's own.
class TokenCertificate : public ModuleTest {
 protected:
  void OpenWith(const std::string& text) {
    provider.Slot(1).Token("Alice").Certificate(text);
    Open();
    ASSERT_EQ(
        module.function_list->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session_),
        CKR_OK);
    ClearTrace();
  }

  // Expects that there is no certificate, and this trace.
  void ExpectUnreadable(const std::string& expected) {
    EXPECT_EQ(module.GetTokenCertificate(session_, 1), nullptr);
    EXPECT_TRACE(expected);
  }

  void TearDown() override {
    module.function_list->C_CloseSession(session_);
    ModuleTest::TearDown();
  }

  CK_SESSION_HANDLE session_ = 0;
};

TEST_F(TokenCertificate, TheLengthQueryFails) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").Return(CKR_ATTRIBUTE_SENSITIVE);
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = ATTRIBUTE_SENSITIVE
    log 3: Unable to read certificate
  )");
}

TEST_F(TokenCertificate, TheValueReadFails) {
  OpenWith("A");
  provider.On("C_GetAttributeValue", 2).Return(CKR_DEVICE_MEMORY);
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = DEVICE_MEMORY
    log 3: Unable to read certificate
  )");
}

TEST_F(TokenCertificate, TheValueGrowsBetweenTheReads) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").After([this] {
    provider.Slot(1).Token().Find(1)->attributes[CKA_VALUE] = "A longer name";
  });
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = BUFFER_TOO_SMALL
    log 3: Unable to read certificate
  )");
}

// The allocator is asked for one byte more than the value has.
TEST_F(TokenCertificate, ThereIsNoMemoryForTheValue) {
  const std::string text = "A;subject=" + std::string(3000, 'x');
  OpenWith(text);
  FailMallocOf(text.size() + 1);
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 3010 bytes
    malloc(3011) = NULL
    log 3: Unable to allocate certificate storage
  )");
}

TEST_F(TokenCertificate, ThereIsNoMemoryForTheStructure) {
  OpenWith("A");
  host.FailAlloc();
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = OK, 1 bytes
    cert_alloc() = NULL
    log 3: Unable to allocate certificate structure
  )");
}

TEST_F(TokenCertificate, TheValueDoesNotParse) {
  OpenWith("A;fail.parse=-7");
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 15 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[15]) = OK, 15 bytes
    cert_alloc()
    cert_parse(A) = -7
    log 3: Error parsing certificate
    cert_free(A)
  )");
}

TEST_F(TokenCertificate, AnEmptyValueIsLeftToTheParser) {
  OpenWith("");
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 0 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[0]) = OK, 0 bytes
    cert_alloc()
    cert_parse(0 bytes) = 1
    log 3: Error parsing certificate
    cert_free(?)
  )");
}

TEST_F(TokenCertificate, AnEmptyValueThatTheParserTakesIsACertificate) {
  OpenWith("");
  host.ParseNothing();
  certificate* const cert = module.GetTokenCertificate(session_, 1);
  EXPECT_TRACE(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 0 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[0]) = OK, 0 bytes
    cert_alloc()
    cert_parse(0 bytes) = 0
  )");
  ASSERT_NE(cert, nullptr);
  cert_free(cert);
}

// A byte is asked for even then.
TEST_F(TokenCertificate, AnEmptyValueGetsOneByte) {
  OpenWith("");
  FailMallocOf(1);
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 0 bytes
    malloc(1) = NULL
    log 3: Unable to allocate certificate storage
  )");
}

// Lengths that do not fit the parser's int are refused before anything is allocated; a length
// and the one byte more must not wrap round to nothing either.
TEST_F(TokenCertificate, ALengthBeyondAnIntIsRefused) {
  OpenWith("A");
  for (const CK_ULONG length : {1UL << 31, 1UL << 32, ULONG_MAX - 1}) {
    provider.On("C_GetAttributeValue").ReportNumber(length);
    ExpectUnreadable(
        "log 5: Getting certificate with id 1\n"
        "C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, " +
        std::to_string(length) +
        " bytes\n"
        "log 3: Unable to allocate certificate storage\n");
  }
}

// The longest that fits is asked of the allocator, and it is the allocator that refuses.
TEST_F(TokenCertificate, TheLongestLengthOfAnIntIsTaken) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").ReportNumber(INT_MAX);
  FailMallocOf(1UL << 31);
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 2147483647 bytes
    malloc(2147483648) = NULL
    log 3: Unable to allocate certificate storage
  )");
}

TEST_F(TokenCertificate, AnUnavailableLengthIsRefused) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").ReportNumber(CK_UNAVAILABLE_INFORMATION);
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, unavailable bytes
    log 3: Unable to allocate certificate storage
  )");
}

TEST_F(TokenCertificate, ASecondLengthBeyondTheBufferIsRefused) {
  OpenWith("A");
  for (const CK_ULONG length : {2UL, 1UL << 31, ULONG_MAX - 1}) {
    provider.On("C_GetAttributeValue", 2).ReportNumber(length);
    ExpectUnreadable(
        "log 5: Getting certificate with id 1\n"
        "C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes\n"
        "C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = OK, " +
        std::to_string(length) +
        " bytes\n"
        "log 3: Unable to read certificate\n");
  }
}

// The second length is the one that counts, while it fits.
TEST_F(TokenCertificate, ASecondLengthMayBeShorter) {
  OpenWith("ABC");
  provider.On("C_GetAttributeValue", 2).ReportNumber(2);
  certificate* const cert = module.GetTokenCertificate(session_, 1);
  EXPECT_TRACE(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 3 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[3]) = OK, 2 bytes
    cert_alloc()
    cert_parse(AB) = 0
  )");
  ASSERT_NE(cert, nullptr);
  cert_free(cert);
}

TEST_F(TokenCertificate, AnObjectThatIsGoneIsUnreadable) {
  OpenWith("A");
  provider.Slot(1).Token().Delete(1);
  ExpectUnreadable(R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OBJECT_HANDLE_INVALID
    log 3: Unable to read certificate
  )");
}

}  // namespace
