// GetTokenCertificate: reading one certificate object, whose length the provider may misreport.
#include <climits>

#include "pkcs11/expected.h"
#include "pkcs11/malloc_wrap.h"
#include "pkcs11/module_test.h"

namespace {

// Reads one certificate object in a session that the test has opened.
class TokenCertificateTest : public ModuleTest {
 protected:
  void OpenWith(const std::string& text) {
    provider.Slot(1).Token("Alice").Certificate(text);
    Open();
    ASSERT_EQ(
        module.function_list->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session_),
        CKR_OK);
    ClearTrace();
  }

  // `expected` is the trace after the first line.
  void ExpectUnreadable(const std::string& expected) {
    EXPECT_EQ(module.GetTokenCertificate(session_, 1), nullptr);
    EXPECT_TRACE("log 5: Getting certificate with id 1", expected);
  }

  void ExpectReadable(const std::string& expected) {
    certificate* const cert = module.GetTokenCertificate(session_, 1);
    EXPECT_TRACE("log 5: Getting certificate with id 1", expected);
    ASSERT_NE(cert, nullptr);
    cert_free(cert);
  }

  void TearDown() override {
    module.function_list->C_CloseSession(session_);
    ModuleTest::TearDown();
  }

  CK_SESSION_HANDLE session_ = 0;
};

TEST_F(TokenCertificateTest, FailsWhenLengthCannotBeRead) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").Return(CKR_ATTRIBUTE_SENSITIVE);
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = ATTRIBUTE_SENSITIVE
    log 3: Unable to read certificate
  )");
}

TEST_F(TokenCertificateTest, FailsWhenValueCannotBeRead) {
  OpenWith("A");
  provider.On("C_GetAttributeValue", 2).Return(CKR_DEVICE_MEMORY);
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = DEVICE_MEMORY
    log 3: Unable to read certificate
  )");
}

TEST_F(TokenCertificateTest, FailsWhenValueGrowsBetweenReads) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").After([this] {
    provider.Slot(1).Token().Find(1)->attributes[CKA_VALUE] = "A longer name";
  });
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = BUFFER_TOO_SMALL
    log 3: Unable to read certificate
  )");
}

// The buffer is one byte longer than the value.
TEST_F(TokenCertificateTest, FailsWithoutMemoryForValue) {
  const std::string text = "A;subject=" + std::string(3000, 'x');
  OpenWith(text);
  FailMallocOf(text.size() + 1);
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 3010 bytes
    malloc(3011) = NULL
    log 3: Unable to allocate certificate storage
  )");
}

TEST_F(TokenCertificateTest, FailsWithoutMemoryForStructure) {
  OpenWith("A");
  host.FailAlloc();
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = OK, 1 bytes
    cert_alloc() = NULL
    log 3: Unable to allocate certificate structure
  )");
}

TEST_F(TokenCertificateTest, FreesCertificateThatDoesNotParse) {
  OpenWith("A;fail.parse=-7");
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 15 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[15]) = OK, 15 bytes
    cert_alloc()
    cert_parse(A) = -7
    log 3: Error parsing certificate
    cert_free(A)
  )");
}

TEST_F(TokenCertificateTest, PassesEmptyValueToParser) {
  OpenWith("");
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 0 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[0]) = OK, 0 bytes
    cert_alloc()
    cert_parse(0 bytes) = 1
    log 3: Error parsing certificate
    cert_free(?)
  )");
}

TEST_F(TokenCertificateTest, AcceptsEmptyValueThatParses) {
  OpenWith("");
  host.AcceptEmptyCertificates();
  ExpectReadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 0 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[0]) = OK, 0 bytes
    cert_alloc()
    cert_parse(0 bytes) = 0
  )");
}

TEST_F(TokenCertificateTest, AllocatesOneByteForEmptyValue) {
  OpenWith("");
  FailMallocOf(1);
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 0 bytes
    malloc(1) = NULL
    log 3: Unable to allocate certificate storage
  )");
}

// A length that does not fit the parser's int is refused before anything is allocated. So is the
// length that would wrap around to 0 with the additional byte.
TEST_F(TokenCertificateTest, RejectsLengthBeyondInt) {
  OpenWith("A");
  for (const CK_ULONG length : {1UL << 31, 1UL << 32, ULONG_MAX - 1}) {
    provider.On("C_GetAttributeValue").ReportNumber(length);
    ExpectUnreadable("C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, " +
                     std::to_string(length) +
                     " bytes\n"
                     "log 3: Unable to allocate certificate storage\n");
  }
}

TEST_F(TokenCertificateTest, AllocatesForLengthOfIntMax) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").ReportNumber(INT_MAX);
  FailMallocOf(1UL << 31);
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 2147483647 bytes
    malloc(2147483648) = NULL
    log 3: Unable to allocate certificate storage
  )");
}

TEST_F(TokenCertificateTest, RejectsUnavailableLength) {
  OpenWith("A");
  provider.On("C_GetAttributeValue").ReportNumber(CK_UNAVAILABLE_INFORMATION);
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, unavailable bytes
    log 3: Unable to allocate certificate storage
  )");
}

TEST_F(TokenCertificateTest, RejectsSecondLengthBeyondBuffer) {
  OpenWith("A");
  for (const CK_ULONG length : {2UL, 1UL << 31, ULONG_MAX - 1}) {
    provider.On("C_GetAttributeValue", 2).ReportNumber(length);
    ExpectUnreadable(
        "C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes\n"
        "C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = OK, " +
        std::to_string(length) +
        " bytes\n"
        "log 3: Unable to read certificate\n");
  }
}

TEST_F(TokenCertificateTest, UsesShorterSecondLength) {
  OpenWith("ABC");
  provider.On("C_GetAttributeValue", 2).ReportNumber(2);
  ExpectReadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 3 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[3]) = OK, 2 bytes
    cert_alloc()
    cert_parse(AB) = 0
  )");
}

TEST_F(TokenCertificateTest, FailsWhenObjectIsDeleted) {
  OpenWith("A");
  provider.Slot(1).Token().Delete(1);
  ExpectUnreadable(R"(
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OBJECT_HANDLE_INVALID
    log 3: Unable to read certificate
  )");
}

}  // namespace
