// Open: loading a provider.
#include "pkcs11/loading_test.h"

#include "support/ckr_names.h"

namespace {

TEST_F(LoadingTest, InitializesProviderAndLogsItsIdentity) {
  EXPECT_EQ(OpenProvider("scripted"), 0);
  EXPECT_TRACE(LoadsProvider(), LogsIdentity());
  EXPECT_NE(module.library_handle, nullptr);
  EXPECT_NE(module.function_list, nullptr);
  EXPECT_EQ(module.library_path, ProviderPath("scripted"));
  EXPECT_TRUE(module.changed);
}

TEST_F(LoadingTest, UnloadsAndReloadsTheSamePath) {
  Open();
  EXPECT_EQ(OpenProvider("scripted"), 0);
  EXPECT_TRACE(UnloadsProvider(), LoadsProvider(), LogsIdentity());
  EXPECT_EQ(provider.num_calls("C_Initialize"), 2);
  EXPECT_EQ(provider.num_calls("C_Finalize"), 1);
}

TEST_F(LoadingTest, UnloadsPreviousProvider) {
  Open();
  EXPECT_EQ(OpenProvider("copy"), 0);
  EXPECT_TRACE(UnloadsProvider(), LoadsProvider("copy.so"), LogsIdentity());
  EXPECT_EQ(module.GetLibraryPath(), ProviderPath("copy"));
}

TEST_F(LoadingTest, PassesTranscodedPathToLoaderAndLogsOriginal) {
  const std::string original = "caf\xc3\xa9.so";
  host.Record("Transcode");
  host.TranscodeTo(ProviderPath("scripted"));
  EXPECT_EQ(module.Open(original), 0);
  EXPECT_TRACE("Transcode(\"UTF-8\", \"\", " + original + ") = scripted.so",
               LoadsProvider("scripted.so", original), LogsIdentity());
  EXPECT_EQ(module.GetLibraryPath(), original);
}

TEST_F(LoadingTest, SucceedsWhenIdentityCannotBeRead) {
  provider.On("C_GetInfo").Return(CKR_FUNCTION_FAILED);
  EXPECT_EQ(OpenProvider("scripted"), 0);
  EXPECT_TRACE(LoadsProvider(), "C_GetInfo() = FUNCTION_FAILED",
               "log 2: Error getting info from PKCS#11 module 'scripted.so': 6");
  EXPECT_EQ(module.GetLibraryPath(), ProviderPath("scripted"));
  EXPECT_TRUE(module.HasChanged());
}

// The largest CK_RV is logged as -1.
TEST_F(LoadingTest, ReportsUnreadableIdentityWithOriginalPathAndSignedResult) {
  host.TranscodeTo(ProviderPath("scripted"));
  provider.On("C_GetInfo").Return(~CK_RV{0});
  EXPECT_EQ(module.Open("original.so"), 0);
  EXPECT_TRACE(LoadsProvider("scripted.so", "original.so"),
               "C_GetInfo() = " + support::CkrName(~CK_RV{0}),
               "log 2: Error getting info from PKCS#11 module 'original.so': -1");
  EXPECT_EQ(module.GetLibraryPath(), "original.so");
}

struct IdentityCase {
  std::string field;   // Of the provider, before it is padded with blanks to 32 bytes.
  std::string logged;  // After the colon, as in the trace.
};

class Identity : public LoadingTest, public testing::WithParamInterface<IdentityCase> {};

TEST_P(Identity, IsLoggedWithoutPadding) {
  provider.manufacturer = scripted::Padded(GetParam().field, 32);
  provider.library_description = provider.manufacturer;
  EXPECT_EQ(OpenProvider("scripted"), 0);
  EXPECT_TRACE(LoadsProvider(), "C_GetInfo() = OK", "log 3: Manufacturer:" + GetParam().logged,
               "log 3: Library description:" + GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, Identity,
    testing::Values(
        IdentityCase{"Example Ltd", " Example Ltd"},
        // The text fills all 32 bytes and has no terminator.
        IdentityCase{"A maker with thirty-two letters.", " A maker with thirty-two letters."},
        IdentityCase{"A maker with thirty letters...", " A maker with thirty letters..."},
        IdentityCase{"", "\\x20"},
        IdentityCase{" \f\n\r\t\vExample\tLtd\v\t\r\n\f ", " Example\\x09Ltd"},
        IdentityCase{std::string("Example\0Ltd", 11), " Example"},
        IdentityCase{std::string(32, '\0'), "\\x20"},
        // The text is not converted, even when it is not UTF-8.
        IdentityCase{"Beispiel \xc3\x84G \xfc", " Beispiel \xc3\x84G \xfc"}));

}  // namespace
