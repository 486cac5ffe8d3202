// Providers that cannot be loaded: status 3 and a message that says why.
#include <sys/stat.h>

#include "cli/cardcert_fixture.h"

namespace {

constexpr char kWhatIsNeeded[] =
    "check that --module names the card's PKCS#11 library, and that what the library needs is "
    "available: its configuration file, its daemon, the card reader service";
class ProviderLoadingTest : public CardcertTest {};

TEST_F(ProviderLoadingTest, FailsIfFileDoesNotExist) {
  const std::string path = "/no/such/provider.so";
  EXPECT_EQ(Refusal(CardcertWithoutModule({"list", "-m", path}), 3),
            LoadError(path, "cannot open shared object file: No such file or directory",
                      "check the path given with --module: there is no such file"));
}

TEST_F(ProviderLoadingTest, FailsIfFileIsNotALibrary) {
  const std::string path = Write("text.so", "not a library");
  EXPECT_EQ(Refusal(CardcertWithoutModule({"list", "-m", path}), 3),
            LoadError(path, "file too short", kWhatIsNeeded));
}

TEST_F(ProviderLoadingTest, FailsIfPathIsAFolder) {
  EXPECT_EQ(Refusal(CardcertWithoutModule({"list", "-m", File("")}), 3),
            LoadError(File(""), "cannot read file data: Is a directory",
                      "check the path given with --module: it is a folder"));
}

TEST_F(ProviderLoadingTest, ExplainsWhyThePathCannotBeResolved) {
  const std::string path = Write("file", "x") + "/provider.so";
  EXPECT_EQ(Refusal(CardcertWithoutModule({"list", "-m", path}), 3),
            LoadError(path, "cannot open shared object file: Not a directory",
                      "check the path given with --module: Not a directory"));
}

TEST_F(ProviderLoadingTest, ExplainsThatTheFileCannotBeRead) {
  const std::string path = Write("provider.so", "");
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  // Root may read every file unless it gives up these capabilities.
  const Finished run = InShell(
      "[ $(id -u) != 0 ] || set -- setpriv --bounding-set=-dac_override,-dac_read_search \"$@\"\n"
      "exec \"$@\"",
      {CARDCERT_PROGRAM, "list", "-m", path});
  EXPECT_EQ(Refusal(run, 3), LoadError(path, "cannot open shared object file: Permission denied",
                                       "check the path given with --module: Permission denied"));
}

TEST_F(ProviderLoadingTest, RefusesAnEmptyPath) {
  const std::string in = Write("in", "x");
  for (const Words& words : {Words{"list"}, Words{"present", "10"}, Words{"watch"},
                             Words{"sign", "10", "--in", in, "--pin-file", PinFile()}}) {
    EXPECT_EQ(Refusal(CardcertWithoutModule(Concat(words, {"-m", ""}))),
              Error("--module is empty"));
  }
}

TEST_F(ProviderLoadingTest, SuggestsDotSlashForAFileInTheCurrentFolder) {
  Write("text.so", "not a library");
  const Finished run =
      InShell("cd '" + File("") + "' && exec \"$@\"", {CARDCERT_PROGRAM, "list", "-m", "text.so"});
  EXPECT_EQ(Refusal(run, 3),
            LoadError("text.so", "cannot open shared object file: No such file or directory",
                      "a name without '/' is searched for in the system's library folders only; "
                      "write './text.so' for the file in the current folder"));
}

TEST_F(ProviderLoadingTest, FailsIfLibraryIsNotAProvider) {
  const std::string err = Refusal(CardcertWithoutModule({"list", "-m", "libc.so.6"}), 3);
  EXPECT_EQ(err, Error("Library 'libc.so.6' does not seem to be a PKCS#11 module") +
                     Hint("a name without '/' is searched for in the system's library folders") +
                     Hint(kWhatIsNeeded) + Hint(kUsualPlaces));
}

TEST_F(ProviderLoadingTest, FailsIfProviderDoesNotInitialize) {
  environment_["SOFTHSM2_CONF"] = File("missing.conf");
  EXPECT_EQ(Refusal(Cardcert({"list"}), 3),
            Error("Error initializing PKCS#11 module '" SOFTHSM2_LIBRARY "': 5") +
                Hint(kWhatIsNeeded) + Hint(kUsualPlaces));
}

TEST_F(ProviderLoadingTest, FailsForEveryCommand) {
  const std::string in = Write("in", "x");
  const std::string pin = PinFile();
  for (const Words& words : {Words{"present", "10"}, Words{"watch"},
                             Words{"sign", "10", "--in", in, "--pin-file", pin}}) {
    EXPECT_EQ(CardcertWithoutModule(Concat(words, {"-m", "/no/such/provider.so"})).status, 3)
        << words[0];
  }
}

}  // namespace
