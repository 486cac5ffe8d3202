// Exceptions out of the host's own functions: what has been begun is ended on the way, and the
// module goes on working.
#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"
#include "pkcs11/traced_loader.h"

namespace {

using testing::ElementsAre;

class Exceptions : public ModuleTest {
 protected:
  void OpenWithTwoTokens() {
    provider.Slot(1).Token("Alice").Certificate("A").Certificate("B;serial=02");
    provider.Slot(2).Token("Bob").Certificate("C;serial=03");
    Open();
  }

  void ExpectListWorks() {
    EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A", "B", "C"));
  }
};

struct OpenCase {
  std::string message;  // At which the log throws.
  std::string provider;
  std::string undone;              // What happens after it.
  std::string loaders_error = {};  // Its own when empty.
};

class DuringOpen : public Exceptions, public testing::WithParamInterface<OpenCase> {
 protected:
  void TearDown() override {
    ResetLoaderError();
    Exceptions::TearDown();
  }
};

TEST_P(DuringOpen, NothingStaysLoaded) {
  Open("copy");
  if (!GetParam().loaders_error.empty())
    SetLoaderError(GetParam().loaders_error);
  host.ThrowAtMessage(GetParam().message);
  EXPECT_THROW(module.Open(ProviderPath(GetParam().provider)), Thrown);
  // What follows the last message, the one that threw.
  const std::string trace = scripted::Trace::Instance().Take();
  const std::string after = trace.substr(trace.rfind("log "));
  EXPECT_EQ(after.substr(after.find('\n') + 1), GetParam().undone) << trace;
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_EQ(module.GetLibraryPath(), "");
  EXPECT_FALSE(provider.initialized);
  module.Close();
  EXPECT_TRACE("");
  EXPECT_EQ(module.Open(ProviderPath("scripted")), 0);
}

const char kUnloaded[] = "C_Finalize(NULL) = OK\ndlclose(scripted.so), unloaded\n";

INSTANTIATE_TEST_SUITE_P(
    Messages, DuringOpen,
    testing::Values(OpenCase{"Loaded PKCS#11 module", "scripted", kUnloaded},
                    OpenCase{"Manufacturer: ", "scripted", kUnloaded},
                    OpenCase{"Library description: ", "scripted", kUnloaded},
                    OpenCase{"Unable to load PKCS#11 module", "absent", ""},
                    OpenCase{ProviderPath("absent") + ": cannot open", "absent", ""},
                    // A line that is complete, and the rest is not logged any more.
                    OpenCase{"first", "absent", "", "first\nrest"},
                    OpenCase{"Library '", "no_function_list",
                             "dlclose(no_function_list.so), unloaded\n"},
                    OpenCase{"Error initializing", "failing_function_list",
                             "dlclose(failing_function_list.so), unloaded\n"},
                    OpenCase{"Error initializing", "failing_initialize",
                             "dlclose(failing_initialize.so), unloaded\n"}));

TEST_F(Exceptions, AMissingIdentityMayThrowToo) {
  provider.On("C_GetInfo").Return(CKR_GENERAL_ERROR);
  host.ThrowAtMessage("Error getting info");
  EXPECT_THROW(module.Open(ProviderPath("scripted")), Thrown);
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_FALSE(provider.initialized);
}

TEST_F(Exceptions, ThePathsConversionThrowsBeforeAnythingIsLoaded) {
  Open();
  host.ThrowAtCall("Transcode");
  EXPECT_THROW(module.Open(ProviderPath("copy")), Thrown);
  EXPECT_TRACE(R"(
    C_Finalize(NULL) = OK
    dlclose(scripted.so), unloaded
  )");
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_EQ(module.GetLibraryPath(), "");
}

// Every message and every host function on the way of a list: the session is closed, the change
// stays, and the next list is whole. Certificates are lost only out of GetToken.
struct ListCase {
  std::string message;
  std::string function;
  std::size_t lost;
};

class DuringGetCertificates : public Exceptions, public testing::WithParamInterface<ListCase> {};

TEST_P(DuringGetCertificates, SessionsAreClosedAndTheChangeStays) {
  OpenWithTwoTokens();
  if (!GetParam().message.empty())
    host.ThrowAtMessage(GetParam().message);
  else
    host.ThrowAtCall(GetParam().function);
  EXPECT_THROW(module.GetCertificates(), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
  EXPECT_TRUE(module.changed);
  EXPECT_EQ(host.certificates_alive(), GetParam().lost);
  host.FreeLostCertificates();
  ExpectListWorks();
  EXPECT_FALSE(module.changed);
}

INSTANTIATE_TEST_SUITE_P(
    Places, DuringGetCertificates,
    testing::Values(
        ListCase{"Fetching tokens...", "", 0}, ListCase{"Found 2 slots.", "", 0},
        ListCase{"Getting token for slot 2", "", 0}, ListCase{"Found token \"Bob\"", "", 0},
        // While a token is read, what has been read is freed again.
        ListCase{"Getting certificates for slot 2", "", 0},
        ListCase{"Getting certificate with id 2", "", 0}, ListCase{"", "cert_alloc", 0},
        ListCase{"", "cert_parse", 0},
        // While it is described, the certificate library is not called again.
        ListCase{"", "cert_subject_attr", 2}, ListCase{"", "cert_subject", 2},
        ListCase{"Found certificate for \"CN=B\"", "", 2}, ListCase{"", "cert_is_ca", 2},
        ListCase{"CA: No", "", 2}, ListCase{"", "cert_serial", 2}, ListCase{"Serial: 02", "", 2},
        ListCase{"", "cert_key_usage", 2}, ListCase{"", "cert_rsa_public_key_components", 2},
        ListCase{"Key length: 2048 bits", "", 2}, ListCase{"", "cert_free", 2}));

TEST_F(Exceptions, AFailureMessageOfGetTokenMayThrow) {
  provider.Slot(1).Token("Empty");
  Open();
  for (const char* function : {"C_GetSlotInfo", "C_GetTokenInfo"}) {
    provider.On(function).Return(CKR_DEVICE_ERROR);
    host.ThrowAtMessage("Unable");  // The misspelt message begins with it, too.
    EXPECT_THROW(module.GetToken(1), Thrown) << function;
  }
  host.ThrowAtMessage("No certificate associated");
  EXPECT_THROW(module.GetToken(1), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
}

// What GetTokenCertificates has read is freed, after its session was closed.
TEST_F(Exceptions, OutOfGetTokenCertificatesCloseAndFree) {
  OpenWithTwoTokens();
  host.ThrowAtMessage("Getting certificate with id 2");
  EXPECT_THROW(module.GetTokenCertificates(1), Thrown);
  EXPECT_TRACE(BeginSearch(1, 1) + Found(1, 1) + Reading(1, 1, "A") + Found(1, 2) + R"(
    log 5: Getting certificate with id 2
    C_CloseSession(session 1) = OK
    cert_free(A)
  )");
}

TEST_F(Exceptions, OutOfTheMessageOfABrokenSearchFree) {
  OpenWithTwoTokens();
  provider.On("C_FindObjects", 2).Return(CKR_DEVICE_ERROR);
  host.ThrowAtMessage("Error enumerating certificates");
  EXPECT_THROW(module.GetTokenCertificates(1), Thrown);
  EXPECT_TRACE(BeginSearch(1, 1) + Found(1, 1) + Reading(1, 1, "A") + R"(
    C_FindObjects(session 1, max 1) = DEVICE_ERROR
    C_CloseSession(session 1) = OK
    log 3: Error enumerating certificates
    cert_free(A)
  )");
}

TEST_F(Exceptions, OutOfTheMessageOfAFailedParseFree) {
  provider.Slot(1).Token("Alice").Certificate("A;fail.parse=1");
  Open();
  host.ThrowAtMessage("Error parsing certificate");
  EXPECT_THROW(module.GetTokenCertificates(1), Thrown);
  EXPECT_EQ(host.certificates_alive(), 0u);
  EXPECT_TRUE(provider.sessions().empty());
}

class DuringFindCertificate : public Exceptions, public testing::WithParamInterface<ListCase> {};

TEST_P(DuringFindCertificate, NoSessionIsLeftOpen) {
  OpenWithTwoTokens();
  if (!GetParam().message.empty())
    host.ThrowAtMessage(GetParam().message);
  else
    host.ThrowAtCall(GetParam().function);
  EXPECT_THROW(module.FindCertificate("03"), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
  EXPECT_EQ(host.certificates_alive(), GetParam().lost);
  host.FreeLostCertificates();
  EXPECT_TRUE(module.CertificatePresent("03"));
}

INSTANTIATE_TEST_SUITE_P(
    Places, DuringFindCertificate,
    testing::Values(ListCase{"Finding certificate with serial 03", "", 0},
                    ListCase{"Getting certificates for slot 2", "", 0},
                    ListCase{"Getting certificate with id 2", "", 0},
                    ListCase{"Not the certificate we're looking for (serial 02)", "", 0},
                    ListCase{"Certificate found", "", 0}, ListCase{"", "cert_alloc", 0},
                    ListCase{"", "cert_parse", 0}, ListCase{"", "cert_serial", 0}));

TEST_F(Exceptions, OutOfAVainSearchLeaveNothingOpen) {
  OpenWithTwoTokens();
  host.ThrowAtMessage("Failed to find the certificate");
  EXPECT_THROW(module.CertificatePresent("04"), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
}

TEST_F(Exceptions, OutOfARefusedTextChangeNothing) {
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
