// Open: loading a provider, and refusing what is none.
#include "pkcs11/module_test.h"
#include "pkcs11/traced_loader.h"
#include "support/ckr_names.h"

namespace {

class Loading : public ModuleTest {
 protected:
  int OpenProvider(const std::string& name) { return module.Open(ProviderPath(name)); }

  void TearDown() override {
    ResetLoaderError();
    ModuleTest::TearDown();
  }

  // Also that the next attempt is none the worse for this one.
  void ExpectNothingLoaded() {
    EXPECT_EQ(module.library_handle, nullptr);
    EXPECT_EQ(module.library_path, "");
    EXPECT_FALSE(module.HasChanged());
    EXPECT_THAT(module.GetCertificates(), testing::IsEmpty());
    EXPECT_TRACE("");
    EXPECT_EQ(OpenProvider("scripted"), 0);
  }
};

TEST_F(Loading, LoadsInitialisesAndLogsTheIdentity) {
  EXPECT_EQ(OpenProvider("scripted"), 0);
  EXPECT_TRACE(R"(
    dlopen(scripted.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    C_GetFunctionList() = OK
    C_Initialize(NULL) = OK
    log 3: Loaded PKCS#11 module 'scripted.so'
    C_GetInfo() = OK
    log 3: Manufacturer: Example Ltd
    log 3: Library description: Scripted tokens
  )");
  EXPECT_NE(module.library_handle, nullptr);
  EXPECT_NE(module.function_list, nullptr);
  EXPECT_EQ(module.library_path, ProviderPath("scripted"));
  EXPECT_TRUE(module.changed);
}

TEST_F(Loading, APathThatDoesNotExistIsRefusedWithTheLoadersText) {
  EXPECT_EQ(OpenProvider("absent"), -1);
  EXPECT_TRACE(R"(
    dlopen(absent.so, RTLD_LAZY) = NULL
    log 2: Unable to load PKCS#11 module 'absent.so':
    dlerror()
    log 2: absent.so: cannot open shared object file: No such file or directory
  )");
  EXPECT_EQ(module.GetLibraryPath(), "");
  ExpectNothingLoaded();
}

TEST_F(Loading, EachLineOfTheLoadersTextIsAMessageAndThenItsRest) {
  SetLoaderError("first line\nsecond line\nthe rest");
  EXPECT_EQ(OpenProvider("absent"), -1);
  EXPECT_TRACE(R"(
    dlopen(absent.so, RTLD_LAZY) = NULL
    log 2: Unable to load PKCS#11 module 'absent.so':
    dlerror()
    log 2: first line
    log 2: second line
    log 2: the rest
  )");
}

TEST_F(Loading, ALoadersTextThatEndsInALineBreakHasNoRest) {
  SetLoaderError("only line\n");
  EXPECT_EQ(OpenProvider("absent"), -1);
  EXPECT_TRACE(R"(
    dlopen(absent.so, RTLD_LAZY) = NULL
    log 2: Unable to load PKCS#11 module 'absent.so':
    dlerror()
    log 2: only line
  )");
}

TEST_F(Loading, ALoaderThatSaysNothingLeavesTheFirstLineAlone) {
  SetNoLoaderError();
  EXPECT_EQ(OpenProvider("absent"), -1);
  EXPECT_TRACE(R"(
    dlopen(absent.so, RTLD_LAZY) = NULL
    log 2: Unable to load PKCS#11 module 'absent.so':
    dlerror()
  )");
}

TEST_F(Loading, ALibraryWithoutFunctionListIsNoModule) {
  EXPECT_EQ(OpenProvider("no_function_list"), -1);
  EXPECT_TRACE(R"(
    dlopen(no_function_list.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = NULL
    log 2: Library 'no_function_list.so' does not seem to be a PKCS#11 module
    dlclose(no_function_list.so), unloaded
  )");
  ExpectNothingLoaded();
}

TEST_F(Loading, AProviderThatCannotGiveItsFunctionListIsRefused) {
  EXPECT_EQ(OpenProvider("failing_function_list"), -1);
  EXPECT_TRACE(R"(
    dlopen(failing_function_list.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    log 2: Error initializing PKCS#11 module 'failing_function_list.so': 2
    dlclose(failing_function_list.so), unloaded
  )");
  EXPECT_NE(module.function_list, nullptr) << "as the provider left it";
  ExpectNothingLoaded();
}

// Success without a list is a failure in all but name.
TEST_F(Loading, AProviderThatGivesANullFunctionListIsRefused) {
  EXPECT_EQ(OpenProvider("null_function_list"), -1);
  EXPECT_TRACE(R"(
    dlopen(null_function_list.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    log 2: Error initializing PKCS#11 module 'null_function_list.so': 5
    dlclose(null_function_list.so), unloaded
  )");
  ExpectNothingLoaded();
}

TEST_F(Loading, AProviderThatIsInitialisedAlreadyIsRefused) {
  EXPECT_EQ(OpenProvider("failing_initialize"), -1);
  EXPECT_TRACE(R"(
    dlopen(failing_initialize.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    log 2: Error initializing PKCS#11 module 'failing_initialize.so': 401
    dlclose(failing_initialize.so), unloaded
  )");
  ExpectNothingLoaded();
}

TEST_F(Loading, AProviderThatCannotBeInitialisedIsNotFinalized) {
  provider.On("C_Initialize").Return(CKR_GENERAL_ERROR);
  EXPECT_EQ(OpenProvider("scripted"), -1);
  EXPECT_TRACE(R"(
    dlopen(scripted.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    C_GetFunctionList() = OK
    C_Initialize(NULL) = GENERAL_ERROR
    log 2: Error initializing PKCS#11 module 'scripted.so': 5
    dlclose(scripted.so), unloaded
  )");
  ExpectNothingLoaded();
}

TEST_F(Loading, AProviderThatCannotDescribeItselfIsLoadedAllTheSame) {
  provider.On("C_GetInfo").Return(CKR_FUNCTION_FAILED);
  EXPECT_EQ(OpenProvider("scripted"), 0);
  EXPECT_TRACE(R"(
    dlopen(scripted.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    C_GetFunctionList() = OK
    C_Initialize(NULL) = OK
    log 3: Loaded PKCS#11 module 'scripted.so'
    C_GetInfo() = FUNCTION_FAILED
    log 2: Error getting info from PKCS#11 module 'scripted.so': 6
  )");
  EXPECT_EQ(module.GetLibraryPath(), ProviderPath("scripted"));
  EXPECT_TRUE(module.HasChanged());
}

struct IdentityCase {
  std::string field;  // As the provider has it, padded with blanks.
  std::string text;
};

class Identity : public Loading, public testing::WithParamInterface<IdentityCase> {};

TEST_P(Identity, IsLoggedWithoutItsPadding) {
  provider.manufacturer = scripted::Padded(GetParam().field, 32);
  provider.library_description = provider.manufacturer;
  EXPECT_EQ(OpenProvider("scripted"), 0);
  const std::vector<std::string> lines = scripted::Trace::Instance().lines();
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[6], "log 3: Manufacturer:" + GetParam().text);
  EXPECT_EQ(lines[7], "log 3: Library description:" + GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, Identity,
    testing::Values(
        IdentityCase{"Example Ltd", " Example Ltd"},
        // All 32 bytes are in use, and no zero byte ends them.
        IdentityCase{"A maker with thirty-two letters.", " A maker with thirty-two letters."},
        IdentityCase{"A maker with thirty letters...", " A maker with thirty letters..."},
        IdentityCase{"", "\\x20"},
        IdentityCase{" \f\n\r\t\vExample\tLtd\v\t\r\n\f ", " Example\\x09Ltd"},
        IdentityCase{std::string("Example\0Ltd", 11), " Example"},
        IdentityCase{std::string(32, '\0'), "\\x20"},
        // No conversion: bytes that are not UTF-8 stay as they are.
        IdentityCase{"Beispiel \xc3\x84G \xfc", " Beispiel \xc3\x84G \xfc"}));

TEST_F(Loading, TheLoaderGetsTheConvertedPathAndMessagesTheOriginal) {
  host.Record("Transcode");
  host.TranscodeTo(ProviderPath("scripted"));
  EXPECT_EQ(module.Open("caf\xc3\xa9.so"), 0);
  EXPECT_TRACE(
      "Transcode(\"UTF-8\", \"\", caf\xc3\xa9.so) = scripted.so\n"
      "dlopen(scripted.so, RTLD_LAZY) = OK\n"
      "dlsym(C_GetFunctionList) = OK\n"
      "C_GetFunctionList() = OK\n"
      "C_Initialize(NULL) = OK\n"
      "log 3: Loaded PKCS#11 module 'caf\xc3\xa9.so'\n"
      "C_GetInfo() = OK\n"
      "log 3: Manufacturer: Example Ltd\n"
      "log 3: Library description: Scripted tokens\n");
  EXPECT_EQ(module.GetLibraryPath(), "caf\xc3\xa9.so");
}

// A provider that cannot be used, and what is said of PATH, the path as it was given.
struct UnusableProvider {
  std::string provider;
  std::string trace;

  std::string TraceWith(const std::string& path) const {
    std::string text = trace;
    return text.replace(text.find("PATH"), 4, path);
  }
};

const UnusableProvider kUnusableProviders[] = {{"absent", R"(
    dlopen(absent.so, RTLD_LAZY) = NULL
    log 2: Unable to load PKCS#11 module 'PATH':
    dlerror()
    log 2: absent.so: cannot open shared object file: No such file or directory
  )"},
                                               {"no_function_list", R"(
    dlopen(no_function_list.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = NULL
    log 2: Library 'PATH' does not seem to be a PKCS#11 module
    dlclose(no_function_list.so), unloaded
  )"},
                                               {"failing_function_list", R"(
    dlopen(failing_function_list.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    log 2: Error initializing PKCS#11 module 'PATH': 2
    dlclose(failing_function_list.so), unloaded
  )"},
                                               {"null_function_list", R"(
    dlopen(null_function_list.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    log 2: Error initializing PKCS#11 module 'PATH': 5
    dlclose(null_function_list.so), unloaded
  )"},
                                               {"failing_initialize", R"(
    dlopen(failing_initialize.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    log 2: Error initializing PKCS#11 module 'PATH': 401
    dlclose(failing_initialize.so), unloaded
  )"}};

class Unusable : public Loading, public testing::WithParamInterface<UnusableProvider> {};

TEST_P(Unusable, WithAConvertedPathIsCalledByThePathThatWasGiven) {
  host.TranscodeTo(ProviderPath(GetParam().provider));
  EXPECT_EQ(module.Open("original.so"), -1);
  EXPECT_TRACE(GetParam().TraceWith("original.so"));
  EXPECT_EQ(module.GetLibraryPath(), "");
}

TEST_P(Unusable, UnloadsTheProviderBeforeAllTheSame) {
  OpenUnchanged();
  EXPECT_EQ(OpenProvider(GetParam().provider), -1);
  EXPECT_TRACE(std::string(R"(
    C_Finalize(NULL) = OK
    dlclose(scripted.so), unloaded
  )") + GetParam().TraceWith(GetParam().provider + ".so"));
  EXPECT_FALSE(module.changed);
  ExpectNothingLoaded();
}

INSTANTIATE_TEST_SUITE_P(Providers, Unusable, testing::ValuesIn(kUnusableProviders),
                         [](const auto& test) { return test.param.provider; });

// The largest value of PKCS#11 is minus one: numbers are signed in messages.
TEST_F(Loading, AMissingIdentityIsReportedUnderTheOriginalPathAndWithASignedNumber) {
  host.TranscodeTo(ProviderPath("scripted"));
  provider.On("C_GetInfo").Return(~CK_RV{0});
  EXPECT_EQ(module.Open("original.so"), 0);
  EXPECT_TRACE(
      "dlopen(scripted.so, RTLD_LAZY) = OK\n"
      "dlsym(C_GetFunctionList) = OK\n"
      "C_GetFunctionList() = OK\n"
      "C_Initialize(NULL) = OK\n"
      "log 3: Loaded PKCS#11 module 'original.so'\n"
      "C_GetInfo() = " +
      support::CkrName(~CK_RV{0}) +
      "\n"
      "log 2: Error getting info from PKCS#11 module 'original.so': -1\n");
  EXPECT_EQ(module.GetLibraryPath(), "original.so");
}

TEST_F(Loading, OpeningTheSamePathAgainUnloadsItFirst) {
  Open();
  EXPECT_EQ(OpenProvider("scripted"), 0);
  EXPECT_TRACE(R"(
    C_Finalize(NULL) = OK
    dlclose(scripted.so), unloaded
    dlopen(scripted.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    C_GetFunctionList() = OK
    C_Initialize(NULL) = OK
    log 3: Loaded PKCS#11 module 'scripted.so'
    C_GetInfo() = OK
    log 3: Manufacturer: Example Ltd
    log 3: Library description: Scripted tokens
  )");
  EXPECT_EQ(provider.num_calls("C_Initialize"), 2);
  EXPECT_EQ(provider.num_calls("C_Finalize"), 1);
}

TEST_F(Loading, OpeningAnotherProviderUnloadsTheFirst) {
  Open();
  EXPECT_EQ(OpenProvider("copy"), 0);
  EXPECT_TRACE(R"(
    C_Finalize(NULL) = OK
    dlclose(scripted.so), unloaded
    dlopen(copy.so, RTLD_LAZY) = OK
    dlsym(C_GetFunctionList) = OK
    C_GetFunctionList() = OK
    C_Initialize(NULL) = OK
    log 3: Loaded PKCS#11 module 'copy.so'
    C_GetInfo() = OK
    log 3: Manufacturer: Example Ltd
    log 3: Library description: Scripted tokens
  )");
  EXPECT_EQ(module.GetLibraryPath(), ProviderPath("copy"));
}

TEST_F(Loading, AFailureKeepsTheConfigurationAndWhetherAnythingChanged) {
  ASSERT_TRUE(module.SetNameComponents("card_label"));
  ASSERT_TRUE(module.AddFilter("x||128"));
  for (const char* name :
       {"absent", "no_function_list", "failing_function_list", "failing_initialize"}) {
    for (const bool changed : {false, true}) {
      module.changed = changed;
      EXPECT_EQ(OpenProvider(name), -1) << name;
      EXPECT_EQ(module.changed, changed) << name;
    }
  }
  EXPECT_EQ(module.filters.size(), 1u);
  EXPECT_EQ(module.name_components.front().category, PKCS11Module::NAME_CARD);
  ClearTrace();
}

}  // namespace
