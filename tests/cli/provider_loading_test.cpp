// Providers that cannot be loaded: status 3 and a message that says why.
#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class ProviderLoadingTest : public CardcertTest {
 protected:
  // The message, once the rest of what a usage error means has been checked.
  static std::string Refusal(const Finished& run, int status = 2) {
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(AllLinesAreMessages(run.err));
    return run.err;
  }
};

TEST_F(ProviderLoadingTest, FailsIfFileDoesNotExist) {
  const std::string said = Refusal(Bare({"list", "-m", "/no/such/provider.so"}), 3);
  EXPECT_THAT(said, HasSubstr("cardcert: Unable to load PKCS#11 module '/no/such/provider.so':\n"
                              "cardcert: /no/such/provider.so: cannot open shared object file"));
  EXPECT_THAT(said, HasSubstr("cardcert: check the path given with --module"));
}

TEST_F(ProviderLoadingTest, FailsIfFileIsNotALibrary) {
  const std::string path = Write("text.so", "not a library");
  EXPECT_THAT(Refusal(Bare({"list", "-m", path}), 3),
              HasSubstr("Unable to load PKCS#11 module '" + path + "':"));
}

TEST_F(ProviderLoadingTest, FailsIfPathIsAFolder) {
  const std::string said = Refusal(Bare({"list", "-m", File("")}), 3);
  EXPECT_THAT(said, HasSubstr("check the path given with --module: it is a folder\n"));
  EXPECT_THAT(said, Not(HasSubstr("daemon")));
}

TEST_F(ProviderLoadingTest, ExplainsWhyThePathCannotBeResolved) {
  const std::string said = Refusal(Bare({"list", "-m", Write("file", "x") + "/provider.so"}), 3);
  EXPECT_THAT(said, HasSubstr("check the path given with --module: Not a directory\n"));
  EXPECT_THAT(said, Not(HasSubstr("no such file\n")));
}

TEST_F(ProviderLoadingTest, RefusesAnEmptyPath) {
  const std::string in = Write("in", "x");
  for (const Words& words : {Words{"list"}, Words{"present", "10"}, Words{"watch"},
                             Words{"sign", "10", "--in", in, "--pin-file", PinFile()}}) {
    Words command = words;
    command.insert(command.end(), {"-m", ""});
    EXPECT_THAT(Refusal(Bare(command)), HasSubstr("cardcert: --module is empty\n"));
  }
}

TEST_F(ProviderLoadingTest, SuggestsDotSlashForAFileInTheCurrentFolder) {
  Write("text.so", "not a library");
  const Finished run = RunProgram({"sh", "-c", "cd '" + File("") + "' && exec \"$@\"", "sh",
                                   CARDCERT_PROGRAM, "list", "-m", "text.so"},
                                  environment_);
  EXPECT_THAT(Refusal(run, 3), HasSubstr("write './text.so' for the file in this folder\n"));
}

TEST_F(ProviderLoadingTest, FailsIfLibraryIsNotAProvider) {
  const std::string said = Refusal(Bare({"list", "-m", "libc.so.6"}), 3);
  EXPECT_THAT(said, HasSubstr("Library 'libc.so.6' does not seem to be a PKCS#11 module"));
  EXPECT_THAT(said, HasSubstr("check that --module names the PKCS#11 library of the card (without a"
                              " folder it is looked for among the system's libraries), and"));
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
    Words command = words;
    command.insert(command.end(), {"-m", "/no/such/provider.so"});
    EXPECT_EQ(Bare(command).status, 3) << words[0];
  }
}

}  // namespace
