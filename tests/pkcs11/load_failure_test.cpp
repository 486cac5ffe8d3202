// Open: providers that cannot be loaded.
#include "pkcs11/loading_test.h"

namespace {

class LoadFailure : public LoadingTest {
 protected:
  void ExpectNothingLoaded() {
    EXPECT_EQ(module.library_handle, nullptr);
    EXPECT_EQ(module.library_path, "");
    EXPECT_EQ(module.GetLibraryPath(), "");
    EXPECT_FALSE(module.HasChanged());
    EXPECT_THAT(module.GetCertificates(), testing::IsEmpty());
    EXPECT_TRACE("");
    EXPECT_EQ(OpenProvider("scripted"), 0) << "the next Open() must succeed";
  }
};

struct UnusableProviderCase {
  std::string name;
  std::string trace;  // PATH stands for the path that was passed to Open().
  bool sets_function_list = false;

  std::string TraceWith(const std::string& path) const {
    std::string text = trace;
    return text.replace(text.find("PATH"), 4, path);
  }
};

UnusableProviderCase FailsToInitialize(const std::string& name, int result,
                                       bool sets_function_list = false) {
  return {name,
          OpensLibrary(name + ".so") + "log 2: Error initializing PKCS#11 module 'PATH': " +
              std::to_string(result) + '\n' + ClosesLibrary(name + ".so"),
          sets_function_list};
}

const UnusableProviderCase kUnusableProviders[] = {
    {"absent", R"(
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
    // CKR_HOST_MEMORY from C_GetFunctionList. The pointer stays as the provider set it.
    FailsToInitialize("failing_function_list", 2, true),
    // CKR_OK and a null pointer, for which CKR_GENERAL_ERROR is reported.
    FailsToInitialize("null_function_list", 5),
    // CKR_CRYPTOKI_ALREADY_INITIALIZED from C_Initialize.
    FailsToInitialize("failing_initialize", 401)};

class UnusableProvider : public LoadFailure,
                         public testing::WithParamInterface<UnusableProviderCase> {};

TEST_P(UnusableProvider, IsReportedAndNotLoaded) {
  EXPECT_EQ(OpenProvider(GetParam().name), -1);
  EXPECT_TRACE(GetParam().TraceWith(GetParam().name + ".so"));
  if (GetParam().sets_function_list) {
    EXPECT_NE(module.function_list, nullptr);
  }
  ExpectNothingLoaded();
}

TEST_P(UnusableProvider, IsReportedWithOriginalPath) {
  host.TranscodeTo(ProviderPath(GetParam().name));
  EXPECT_EQ(module.Open("original.so"), -1);
  EXPECT_TRACE(GetParam().TraceWith("original.so"));
  EXPECT_EQ(module.GetLibraryPath(), "");
}

TEST_P(UnusableProvider, StillUnloadsPreviousProvider) {
  OpenUnchanged();
  EXPECT_EQ(OpenProvider(GetParam().name), -1);
  EXPECT_TRACE(UnloadsProvider(), GetParam().TraceWith(GetParam().name + ".so"));
  EXPECT_FALSE(module.changed);
  ExpectNothingLoaded();
}

INSTANTIATE_TEST_SUITE_P(Providers, UnusableProvider, testing::ValuesIn(kUnusableProviders),
                         [](const auto& test) { return test.param.name; });

TEST_F(LoadFailure, DoesNotFinalizeProviderThatFailedToInitialize) {
  provider.On("C_Initialize").Return(CKR_GENERAL_ERROR);
  EXPECT_EQ(OpenProvider("scripted"), -1);
  EXPECT_TRACE(
      OpensLibrary("scripted.so"), "C_GetFunctionList() = OK", "C_Initialize(NULL) = GENERAL_ERROR",
      "log 2: Error initializing PKCS#11 module 'scripted.so': 5", ClosesLibrary("scripted.so"));
  ExpectNothingLoaded();
}

TEST_F(LoadFailure, KeepsConfigurationAndChangeFlag) {
  ASSERT_TRUE(module.SetNameComponents("card_label"));
  ASSERT_TRUE(module.AddFilter("x||128"));
  for (const UnusableProviderCase& unusable : kUnusableProviders) {
    for (const bool changed : {false, true}) {
      module.changed = changed;
      EXPECT_EQ(OpenProvider(unusable.name), -1) << unusable.name;
      EXPECT_EQ(module.changed, changed) << unusable.name;
    }
  }
  EXPECT_EQ(module.filters.size(), 1u);
  EXPECT_EQ(module.name_components.front().category, PKCS11Module::NAME_CARD);
  ClearTrace();
}

struct LoaderTextCase {
  const char* name;
  std::string text;
  std::string logged;
};

class LoaderText : public LoadingTest, public testing::WithParamInterface<LoaderTextCase> {};

TEST_P(LoaderText, IsLoggedLineByLine) {
  SetLoaderError(GetParam().text);
  EXPECT_EQ(OpenProvider("absent"), -1);
  EXPECT_TRACE("dlopen(absent.so, RTLD_LAZY) = NULL",
               "log 2: Unable to load PKCS#11 module 'absent.so':", "dlerror()", GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(Texts, LoaderText,
                         testing::Values(LoaderTextCase{"LastLineWithoutLineBreak",
                                                        "first line\nsecond line\nthe rest", R"(
                                           log 2: first line
                                           log 2: second line
                                           log 2: the rest
                                         )"},
                                         LoaderTextCase{"LastLineWithLineBreak", "only line\n",
                                                        "log 2: only line"}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(LoadFailure, LogsOneLineWhenLoaderHasNoText) {
  SetNoLoaderError();
  EXPECT_EQ(OpenProvider("absent"), -1);
  EXPECT_TRACE("dlopen(absent.so, RTLD_LAZY) = NULL",
               "log 2: Unable to load PKCS#11 module 'absent.so':", "dlerror()");
}

}  // namespace
