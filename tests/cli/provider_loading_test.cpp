// Providers that cannot be loaded: status 3 and a message that says why.
#include <sys/stat.h>

#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class ProviderLoadingTest : public CardcertTest {};

TEST_F(ProviderLoadingTest, FailsIfFileDoesNotExist) {
  const std::string said =
      Refusal(CardcertWithoutModule({"list", "-m", "/no/such/provider.so"}), 3);
  EXPECT_THAT(said,
              HasSubstr("cardcert: error: Unable to load PKCS#11 module '/no/such/provider.so':\n"
                        "cardcert:   /no/such/provider.so: cannot open shared object file"));
  EXPECT_THAT(said, HasSubstr("cardcert: hint: check the path given with --module"));
}

TEST_F(ProviderLoadingTest, FailsIfFileIsNotALibrary) {
  const std::string path = Write("text.so", "not a library");
  EXPECT_THAT(Refusal(CardcertWithoutModule({"list", "-m", path}), 3),
              HasSubstr("Unable to load PKCS#11 module '" + path + "':"));
}

TEST_F(ProviderLoadingTest, FailsIfPathIsAFolder) {
  const std::string said = Refusal(CardcertWithoutModule({"list", "-m", File("")}), 3);
  EXPECT_THAT(said, HasSubstr("check the path given with --module: it is a folder\n"));
  EXPECT_THAT(said, Not(HasSubstr("daemon")));
}

TEST_F(ProviderLoadingTest, ExplainsWhyThePathCannotBeResolved) {
  const std::string said =
      Refusal(CardcertWithoutModule({"list", "-m", Write("file", "x") + "/provider.so"}), 3);
  EXPECT_THAT(said, HasSubstr("check the path given with --module: Not a directory\n"));
  EXPECT_THAT(said, Not(HasSubstr("no such file\n")));
}

TEST_F(ProviderLoadingTest, ExplainsThatTheFileCannotBeRead) {
  const std::string path = Write("provider.so", "");
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  // Root may read every file unless it gives up these capabilities.
  const Finished run = InShell(
      "[ $(id -u) != 0 ] || set -- setpriv --bounding-set=-dac_override,-dac_read_search \"$@\"\n"
      "exec \"$@\"",
      {CARDCERT_PROGRAM, "list", "-m", path});
  EXPECT_THAT(Refusal(run, 3),
              HasSubstr("check the path given with --module: Permission denied\n"));
}

TEST_F(ProviderLoadingTest, RefusesAnEmptyPath) {
  const std::string in = Write("in", "x");
  for (const Words& words : {Words{"list"}, Words{"present", "10"}, Words{"watch"},
                             Words{"sign", "10", "--in", in, "--pin-file", PinFile()}}) {
    EXPECT_THAT(Refusal(CardcertWithoutModule(Concat(words, {"-m", ""}))),
                HasSubstr("cardcert: error: --module is empty\n"));
  }
}

TEST_F(ProviderLoadingTest, SuggestsDotSlashForAFileInTheCurrentFolder) {
  Write("text.so", "not a library");
  const Finished run =
      InShell("cd '" + File("") + "' && exec \"$@\"", {CARDCERT_PROGRAM, "list", "-m", "text.so"});
  EXPECT_THAT(Refusal(run, 3), HasSubstr("write './text.so' for the file in the current folder\n"));
}

TEST_F(ProviderLoadingTest, FailsIfLibraryIsNotAProvider) {
  const std::string said = Refusal(CardcertWithoutModule({"list", "-m", "libc.so.6"}), 3);
  EXPECT_THAT(said, HasSubstr("Library 'libc.so.6' does not seem to be a PKCS#11 module"));
  EXPECT_THAT(said,
              HasSubstr("a name without '/' is searched for in the system's library folders\n"
                        "cardcert: hint: check that --module names the card's PKCS#11 library,"
                        " and that"));
}

TEST_F(ProviderLoadingTest, FailsIfProviderDoesNotInitialize) {
  environment_["SOFTHSM2_CONF"] = File("missing.conf");
  EXPECT_THAT(Refusal(Cardcert({"list"}), 3),
              HasSubstr("Error initializing PKCS#11 module '" SOFTHSM2_LIBRARY "': 5"));
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
