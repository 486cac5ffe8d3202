// Exceptions from the host's functions: open sessions, searches and libraries are released, and the
// module can still be used.
#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"
#include "pkcs11/traced_loader.h"

namespace {

using testing::ElementsAre;

class ExceptionTest : public ModuleTest {
 protected:
  void OpenWithTwoTokens() {
    provider.Slot(1).Token("Alice").Certificate("A").Certificate("B;serial=02");
    provider.Slot(2).Token("Bob").Certificate("C;serial=03");
    Open();
  }

  void ThrowAt(const std::string& message, const std::string& function) {
    message.empty() ? host.ThrowAtCall(function) : host.ThrowAtMessage(message);
  }
};

struct OpenCase {
  std::string message;  // The log throws at this message.
  std::string provider;
  std::string cleanup;           // The trace after that message.
  std::string loader_text = {};  // Replaces the text of the loader, unless it is empty.
};

class ExceptionInOpen : public ExceptionTest, public testing::WithParamInterface<OpenCase> {
 protected:
  void TearDown() override {
    ResetLoaderError();
    ExceptionTest::TearDown();
  }
};

TEST_P(ExceptionInOpen, LeavesNothingLoaded) {
  Open("copy");
  if (!GetParam().loader_text.empty())
    SetLoaderError(GetParam().loader_text);
  host.ThrowAtMessage(GetParam().message);
  EXPECT_THROW(module.Open(ProviderPath(GetParam().provider)), Thrown);
  // The message that threw is the last one.
  const std::string trace = scripted::Trace::Instance().Take();
  const std::string after = trace.substr(trace.rfind("log "));
  EXPECT_EQ(after.substr(after.find('\n') + 1), GetParam().cleanup) << trace;
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_EQ(module.GetLibraryPath(), "");
  EXPECT_FALSE(provider.initialized);
  module.Close();
  EXPECT_TRACE("");
  EXPECT_EQ(module.Open(ProviderPath("scripted")), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Messages, ExceptionInOpen,
    testing::Values(OpenCase{"Loaded PKCS#11 module", "scripted", UnloadsProvider()},
                    OpenCase{"Manufacturer: ", "scripted", UnloadsProvider()},
                    OpenCase{"Library description: ", "scripted", UnloadsProvider()},
                    OpenCase{"Unable to load PKCS#11 module", "absent", ""},
                    OpenCase{ProviderPath("absent") + ": cannot open", "absent", ""},
                    // The second line is not logged.
                    OpenCase{"first", "absent", "", "first\nrest"},
                    OpenCase{"Library '", "no_function_list", ClosesLibrary("no_function_list.so")},
                    OpenCase{"Error initializing", "failing_function_list",
                             ClosesLibrary("failing_function_list.so")},
                    OpenCase{"Error initializing", "failing_initialize",
                             ClosesLibrary("failing_initialize.so")}));

TEST_F(ExceptionTest, UnloadsProviderWhenMessageAboutIdentityThrows) {
  provider.On("C_GetInfo").Return(CKR_GENERAL_ERROR);
  host.ThrowAtMessage("Error getting info");
  EXPECT_THROW(module.Open(ProviderPath("scripted")), Thrown);
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_FALSE(provider.initialized);
}

TEST_F(ExceptionTest, LoadsNothingWhenTranscodeThrows) {
  Open();
  host.ThrowAtCall("Transcode");
  EXPECT_THROW(module.Open(ProviderPath("copy")), Thrown);
  EXPECT_TRACE(UnloadsProvider());
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_EQ(module.GetLibraryPath(), "");
}

// The message or the function that throws. Certificates are lost only while GetToken describes
// them.
struct ThrowCase {
  std::string message;        // Or empty.
  std::string function = {};  // Or empty.
  std::size_t num_lost = 0;
};

class ExceptionInGetCertificates : public ExceptionTest,
                                   public testing::WithParamInterface<ThrowCase> {};

TEST_P(ExceptionInGetCertificates, ClosesSessionAndKeepsChange) {
  OpenWithTwoTokens();
  ThrowAt(GetParam().message, GetParam().function);
  EXPECT_THROW(module.GetCertificates(), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
  EXPECT_TRUE(module.changed);
  EXPECT_EQ(host.certificates_alive(), GetParam().num_lost);
  host.FreeLostCertificates();
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A", "B", "C"));
  EXPECT_FALSE(module.changed);
}

INSTANTIATE_TEST_SUITE_P(
    Places, ExceptionInGetCertificates,
    testing::Values(
        ThrowCase{"Fetching tokens..."}, ThrowCase{"Found 2 slots."},
        ThrowCase{"Getting token for slot 2"}, ThrowCase{"Found token \"Bob\""},
        // While a token is read: the certificates that have been read are freed.
        ThrowCase{"Getting certificates for slot 2"}, ThrowCase{"Getting certificate with id 2"},
        ThrowCase{"", "cert_alloc"}, ThrowCase{"", "cert_parse"},
        // While a token is described: its certificates are lost.
        ThrowCase{"", "cert_subject_attr", 2}, ThrowCase{"", "cert_subject", 2},
        ThrowCase{"Found certificate for \"CN=B\"", "", 2}, ThrowCase{"", "cert_is_ca", 2},
        ThrowCase{"CA: No", "", 2}, ThrowCase{"", "cert_serial", 2}, ThrowCase{"Serial: 02", "", 2},
        ThrowCase{"", "cert_key_usage", 2}, ThrowCase{"", "cert_rsa_public_key_components", 2},
        ThrowCase{"Key length: 2048 bits", "", 2}, ThrowCase{"", "cert_free", 2}));

TEST_F(ExceptionTest, ClosesSessionsWhenFailureMessageOfGetTokenThrows) {
  provider.Slot(1).Token("Empty");
  Open();
  for (const char* function : {"C_GetSlotInfo", "C_GetTokenInfo"}) {
    provider.On(function).Return(CKR_DEVICE_ERROR);
    host.ThrowAtMessage("Unable");  // "Unabled to get description" also begins so.
    EXPECT_THROW(module.GetToken(1), Thrown) << function;
  }
  host.ThrowAtMessage("No certificate associated");
  EXPECT_THROW(module.GetToken(1), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
}

TEST_F(ExceptionTest, ClosesSessionAndFreesCertificatesReadSoFar) {
  OpenWithTwoTokens();
  host.ThrowAtMessage("Getting certificate with id 2");
  EXPECT_THROW(module.GetTokenCertificates(1), Thrown);
  EXPECT_TRACE(BeginsSearch(1, 1), FindsObject(1, 1), ReadsCertificate(1, 1, "A"),
               FindsObject(1, 2), "log 5: Getting certificate with id 2", ClosesSession(1),
               FreesCertificates({"A"}));
}

TEST_F(ExceptionTest, FreesCertificatesWhenMessageAboutFailedSearchThrows) {
  OpenWithTwoTokens();
  provider.On("C_FindObjects", 2).Return(CKR_DEVICE_ERROR);
  host.ThrowAtMessage("Error enumerating certificates");
  EXPECT_THROW(module.GetTokenCertificates(1), Thrown);
  EXPECT_TRACE(BeginsSearch(1, 1), FindsObject(1, 1), ReadsCertificate(1, 1, "A"),
               "C_FindObjects(session 1, max 1) = DEVICE_ERROR", ClosesSession(1),
               "log 3: Error enumerating certificates", FreesCertificates({"A"}));
}

TEST_F(ExceptionTest, FreesCertificateWhenMessageAboutFailedParseThrows) {
  provider.Slot(1).Token("Alice").Certificate("A;fail.parse=1");
  Open();
  host.ThrowAtMessage("Error parsing certificate");
  EXPECT_THROW(module.GetTokenCertificates(1), Thrown);
  EXPECT_EQ(host.certificates_alive(), 0u);
  EXPECT_TRUE(provider.sessions().empty());
}

class ExceptionInFindCertificate : public ExceptionTest,
                                   public testing::WithParamInterface<ThrowCase> {};

TEST_P(ExceptionInFindCertificate, LeavesNoSessionOpen) {
  OpenWithTwoTokens();
  ThrowAt(GetParam().message, GetParam().function);
  EXPECT_THROW(module.FindCertificate("03"), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
  EXPECT_EQ(host.certificates_alive(), GetParam().num_lost);
  host.FreeLostCertificates();
  EXPECT_TRUE(module.CertificatePresent("03"));
}

INSTANTIATE_TEST_SUITE_P(
    Places, ExceptionInFindCertificate,
    testing::Values(ThrowCase{"Finding certificate with serial 03"},
                    ThrowCase{"Getting certificates for slot 2"},
                    ThrowCase{"Getting certificate with id 2"},
                    ThrowCase{"Not the certificate we're looking for (serial 02)"},
                    ThrowCase{"Certificate found"}, ThrowCase{"", "cert_alloc"},
                    ThrowCase{"", "cert_parse"}, ThrowCase{"", "cert_serial"}));

TEST_F(ExceptionTest, ClosesSessionsWhenMessageAboutAbsentCertificateThrows) {
  OpenWithTwoTokens();
  host.ThrowAtMessage("Failed to find the certificate");
  EXPECT_THROW(module.CertificatePresent("04"), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
}

TEST_F(ExceptionTest, KeepsConfigurationWhenMessageAboutRefusedTextThrows) {
  ASSERT_TRUE(module.AddFilter("x||1"));
  module.changed = false;
  host.ThrowAtMessage("Malformed token");
  EXPECT_THROW(module.AddFilter("x|bad|0"), Thrown);
  EXPECT_EQ(module.filters.size(), 1u);
  EXPECT_FALSE(module.changed);
  host.ThrowAtMessage("Malformed token");
  EXPECT_THROW(module.SetNameComponents("card_label,bad"), Thrown);
  EXPECT_EQ(module.name_components.size(), 1u);
}

}  // namespace
