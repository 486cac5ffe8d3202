// GetTokenCertificates: reading all certificates of a token.
#include <climits>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TokenCertificatesTest : public ModuleTest {
 protected:
  // Opens a provider with one token in slot 1 that holds these certificates.
  void OpenWith(const std::vector<std::string>& texts) {
    scripted::Token& token = provider.Slot(1).Token("Alice");
    for (const std::string& text : texts)
      token.Certificate(text);
    Open();
  }

  // Returns the names of the certificates. They are freed at the end of the test, outside of the
  // trace.
  std::vector<std::string> Read(unsigned long slot = 1) {
    std::vector<std::string> names;
    certificates_ = module.GetTokenCertificates(slot);
    for (const certificate* cert : certificates_)
      names.push_back(cert->name());
    return names;
  }

  void TearDown() override {
    for (certificate* cert : certificates_)
      cert_free(cert);
    ModuleTest::TearDown();
  }

 private:
  std::list<certificate*> certificates_;
};

TEST_F(TokenCertificatesTest, ReadsInOrderOfSearch) {
  OpenWith({"A", "B;serial=02"});
  EXPECT_THAT(Read(), ElementsAre("A", "B"));
  EXPECT_TRACE(R"(
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL) = OK, session 1
    C_FindObjectsInit(session 1, CKA_CLASS=CKO_CERTIFICATE) = OK
    C_FindObjects(session 1, max 1) = OK, object 1
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = OK, 1 bytes
    cert_alloc()
    cert_parse(A) = 0
    C_FindObjects(session 1, max 1) = OK, object 2
    log 5: Getting certificate with id 2
    C_GetAttributeValue(session 1, object 2, CKA_VALUE NULL) = OK, 11 bytes
    C_GetAttributeValue(session 1, object 2, CKA_VALUE[11]) = OK, 11 bytes
    cert_alloc()
    cert_parse(B) = 0
    C_FindObjects(session 1, max 1) = OK, no object
    C_FindObjectsFinal(session 1) = OK
    C_CloseSession(session 1) = OK
  )");
}

TEST_F(TokenCertificatesTest, ReturnsNothingForTokenWithoutCertificates) {
  OpenWith({});
  provider.Slot(1).Token().PrivateKey("\x01", nullptr);
  EXPECT_THAT(Read(), IsEmpty());
  EXPECT_TRACE(ReadsToken(1, 1, {}));
}

TEST_F(TokenCertificatesTest, SkipsCertificateThatDoesNotParse) {
  OpenWith({"A", "B;fail.parse=1", "C"});
  EXPECT_THAT(Read(), ElementsAre("A", "C"));
  EXPECT_TRACE(BeginsSearch(1, 1), FindsObject(1, 1), ReadsCertificate(1, 1, "A"),
               FindsObject(1, 2), ReadsValue(1, 2, 14), R"(
    cert_alloc()
    cert_parse(B) = 1
    log 3: Error parsing certificate
    cert_free(B)
  )",
               FindsObject(1, 3), ReadsCertificate(1, 3, "C"), FindsNoObject(1), EndsSearch(1));
}

TEST_F(TokenCertificatesTest, ReturnsNothingWithoutSession) {
  OpenWith({"A"});
  provider.On("C_OpenSession").Return(CKR_TOKEN_NOT_RECOGNIZED);
  EXPECT_THAT(Read(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL) = TOKEN_NOT_RECOGNIZED
    log 3: Unable to open card session
  )");
}

TEST_F(TokenCertificatesTest, ClosesSessionWhenSearchFailsToBegin) {
  OpenWith({"A"});
  provider.On("C_FindObjectsInit").Return(CKR_DEVICE_ERROR);
  EXPECT_THAT(Read(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL) = OK, session 1
    C_FindObjectsInit(session 1, CKA_CLASS=CKO_CERTIFICATE) = DEVICE_ERROR
    C_CloseSession(session 1) = OK
    log 3: Error enumerating certificates
  )");
}

TEST_F(TokenCertificatesTest, KeepsCertificatesReadBeforeSearchFails) {
  OpenWith({"A", "B", "C"});
  provider.On("C_FindObjects", 3).Return(CKR_DEVICE_REMOVED);
  EXPECT_THAT(Read(), ElementsAre("A", "B"));
  EXPECT_TRACE(BeginsSearch(1, 1), FindsObject(1, 1), ReadsCertificate(1, 1, "A"),
               FindsObject(1, 2), ReadsCertificate(1, 2, "B"),
               "C_FindObjects(session 1, max 1) = DEVICE_REMOVED", ClosesSession(1),
               "log 3: Error enumerating certificates");
}

TEST_F(TokenCertificatesTest, IgnoresFailureToEndSearchAndSession) {
  OpenWith({"A"});
  provider.On("C_FindObjectsFinal").Return(CKR_DEVICE_ERROR);
  provider.On("C_CloseSession").Return(CKR_DEVICE_ERROR);
  EXPECT_THAT(Read(), ElementsAre("A"));
  EXPECT_TRACE(BeginsSearch(1, 1), FindsObject(1, 1), ReadsCertificate(1, 1, "A"), FindsNoObject(1),
               R"(
    C_FindObjectsFinal(session 1) = DEVICE_ERROR
    C_CloseSession(session 1) = DEVICE_ERROR
  )");
}

TEST_F(TokenCertificatesTest, WritesSlotAndObjectInDecimal) {
  scripted::Token& token = provider.Slot(4096).Token("Alice").Certificate("A");
  token.objects.back().handle = 65535;
  Open();
  EXPECT_THAT(Read(4096), ElementsAre("A"));
  EXPECT_TRACE(ReadsToken(4096, 1, {"A"}, 65535));
}

TEST_F(TokenCertificatesTest, WritesHighestSlotAsMinusOne) {
  Open();
  EXPECT_THAT(Read(ULONG_MAX), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Getting certificates for slot -1
    C_OpenSession(slot 18446744073709551615, SERIAL) = SLOT_ID_INVALID
    log 3: Unable to open card session
  )");
}

}  // namespace
