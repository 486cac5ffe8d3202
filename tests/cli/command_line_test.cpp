// What the program cannot work with: a clear message, the right status, and nothing half done.
#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class BadInputTest : public CardcertTest {
 protected:
  // The message, once the rest of what a usage error means has been checked.
  static std::string Refusal(const Finished& run, int status = 2) {
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(AllLinesAreMessages(run.err));
    return run.err;
  }
};

TEST_F(BadInputTest, ACommandIsNeeded) {
  EXPECT_THAT(Refusal(Bare({})), HasSubstr("see cardcert --help"));
  EXPECT_THAT(Refusal(Bare({"lst"})), HasSubstr("cardcert: there is no command 'lst'"));
  EXPECT_THAT(Refusal(Bare({"-m", "x.so", "list"})),
              HasSubstr("cardcert: '-m' has to come after a command: list, present"));
}

TEST_F(BadInputTest, AModuleIsNeeded) {
  EXPECT_THAT(Refusal(Bare({"list"})), HasSubstr("--module"));
  EXPECT_THAT(Refusal(Bare({"list", "-m"})), HasSubstr("cardcert: --module needs a value\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "-m", "x.so"})),
              HasSubstr("cardcert: --module is given more than once\n"));
}

TEST_F(BadInputTest, UnknownWordsAreRefused) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--jsn"})),
              HasSubstr("cardcert: list has no option '--jsn'\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--first", "more", "-s", "words"})),
              HasSubstr("cardcert: list has no option '--first', '-s', and was given 2 words"));
  EXPECT_THAT(Refusal(Cardcert({"list", "more"})),
              HasSubstr("cardcert: list was given 1 word too many\n"));
}

TEST_F(BadInputTest, APinBehindAMistypedOptionIsNotRepeated) {
  for (const Words& words :
       {Words{"list", "--pin", "246810"}, Words{"sign", "10", "--pinn", "246810"},
        Words{"sign", "10", "--pinn=246810"}, Words{"sign", "10", "-p", "246810"},
        Words{"sign", "10", "-p246810"}, Words{"sign", "10", "-p=246810"},
        Words{"sign", "10", "--pin246810"}, Words{"sign", "10", "-246810"},
        Words{"sign", "10", "246810"}, Words{"sign", "10", "--", "246810"},
        Words{"--pin", "246810", "sign", "10"}, Words{"--pin=246810", "sign", "10"},
        Words{"246810", "sign", "10"}})
    EXPECT_THAT(Refusal(Cardcert(words)), Not(HasSubstr("246810"))) << words[2];
}

TEST_F(BadInputTest, AFlagTakesNoValue) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--json=false"})),
              HasSubstr("cardcert: --json takes no value\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--matching=0"})), HasSubstr("--matching takes no value"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--json=1", "--count", "1"})),
              HasSubstr("--json takes no value"));
  const std::string said = Refusal(Cardcert({"sign", "10", "--batch=246810"}));
  EXPECT_THAT(said, HasSubstr("--batch takes no value"));
  EXPECT_THAT(said, Not(HasSubstr("246810")));
}

TEST_F(BadInputTest, AMessageCannotSteerTheTerminal) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "\033[2J"})), HasSubstr("\\x1b[2J"));
}

TEST_F(BadInputTest, AMalformedNameIsRefusedWithItsReason) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--name", "subject"})),
              HasSubstr("cardcert: --name 'subject': Malformed token \"subject\"\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--name", "Subject_CN"})),
              HasSubstr("Unknown name category \"Subject\""));
  EXPECT_THAT(Refusal(Cardcert({"list", "--name", "subject_CN, card_label"})),
              HasSubstr("Malformed certificate naming specification"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--name", ""})),
              HasSubstr("Ignoring empty name specification"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--name", "subject_CN\\"})),
              HasSubstr("Unable to parse certificate naming specification"));
}

TEST_F(BadInputTest, AMalformedFilterIsRefusedWithItsReason) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a|b"})),
              HasSubstr("cardcert: --filter 'a|b': Smartcard filter does not have 3 fields\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a|commonName|0"})),
              HasSubstr("Malformed token \"commonName\""));
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a||0", "--filter", ""})),
              HasSubstr("--filter ''"));
}

TEST_F(BadInputTest, AKeyUsageThatIsNoNumberIsPointedOutWithWhatItCountsAs) {
  const std::map<std::string, std::string> misread = {{"digitalSignature", "0, no requirement\n"},
                                                      {"", "0, no requirement\n"},
                                                      {" 128", "128\n"},
                                                      {"12xyz", "12\n"},
                                                      {"128 ", "128\n"},
                                                      {"+-1", "0, no requirement\n"},
                                                      {"99999999999999999999", "-1\n"}};
  for (const auto& [usage, meaning] : misread) {
    const Finished run = Cardcert({"list", "--filter", "a||64", "--filter", "a||" + usage});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err,
                HasSubstr("cardcert: note: the key usage '" + usage + "' of --filter 'a||" + usage +
                          "' is no number, or out of range: it counts as " + meaning));
  }
  for (const char* const usage : {"128", "-1", "+64", "0128", "-0"})
    EXPECT_THAT(Cardcert({"list", "--filter", std::string("a||") + usage}).err,
                Not(HasSubstr("the key usage")));
}

TEST_F(BadInputTest, ALogLevelIsANumberFrom0To5) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "6"})),
              HasSubstr("cardcert: --log-level: '6' is no number from 0 to 5\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "-1"})), HasSubstr("--log-level"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "all"})), HasSubstr("--log-level"));
}

TEST_F(BadInputTest, ALogFileMustBeWritable) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-file", File("no/log")})),
              HasSubstr("cannot write the log file '" + File("no/log") + "': No such file"));
}

TEST_F(BadInputTest, NothingIsLoadedOrWrittenBeforeTheWholeCommandLineIsGood) {
  // A provider that cannot be loaded would be status 3, and a log file would be there.
  const Words command = {"list", "-m", "/no/such/provider.so", "--log-file", File("log")};
  Words malformed = command;
  malformed.insert(malformed.end(), {"--name", "nonsense"});
  EXPECT_EQ(Bare(malformed).status, 2);
  EXPECT_FALSE(Exists(File("log")));
  EXPECT_EQ(Bare(command).status, 3);
  EXPECT_TRUE(Exists(File("log")));
}

TEST_F(BadInputTest, APathThatIsNoFileIsStatus3) {
  const std::string said = Refusal(Bare({"list", "-m", "/no/such/provider.so"}), 3);
  EXPECT_THAT(said, HasSubstr("cardcert: Unable to load PKCS#11 module '/no/such/provider.so':\n"
                              "cardcert: /no/such/provider.so: cannot open shared object file"));
  EXPECT_THAT(said, HasSubstr("cardcert: check the path given with --module"));
}

TEST_F(BadInputTest, AFileThatIsNoLibraryIsStatus3) {
  const std::string path = Write("text.so", "not a library");
  EXPECT_THAT(Refusal(Bare({"list", "-m", path}), 3),
              HasSubstr("Unable to load PKCS#11 module '" + path + "':"));
}

TEST_F(BadInputTest, AFolderIsStatus3) {
  const std::string said = Refusal(Bare({"list", "-m", File("")}), 3);
  EXPECT_THAT(said, HasSubstr("check the path given with --module: it is a folder\n"));
  EXPECT_THAT(said, Not(HasSubstr("daemon")));
}

TEST_F(BadInputTest, APathThatCannotBeFollowedIsNotCalledMissing) {
  const std::string said = Refusal(Bare({"list", "-m", Write("file", "x") + "/provider.so"}), 3);
  EXPECT_THAT(said, HasSubstr("check the path given with --module: Not a directory\n"));
  EXPECT_THAT(said, Not(HasSubstr("no such file\n")));
}

TEST_F(BadInputTest, AnEmptyPathIsNoProvider) {
  const std::string in = Write("in", "x");
  for (const Words& words : {Words{"list"}, Words{"present", "10"}, Words{"watch"},
                             Words{"sign", "10", "--in", in, "--pin-file", PinFile()}}) {
    Words command = words;
    command.insert(command.end(), {"-m", ""});
    EXPECT_THAT(Refusal(Bare(command)), HasSubstr("cardcert: --module is empty\n"));
  }
}

TEST_F(BadInputTest, AFileInTheCurrentFolderIsPointedOut) {
  Write("text.so", "not a library");
  const Finished run = RunProgram({"sh", "-c", "cd '" + File("") + "' && exec \"$@\"", "sh",
                                   CARDCERT_PROGRAM, "list", "-m", "text.so"},
                                  environment_);
  EXPECT_THAT(Refusal(run, 3), HasSubstr("write './text.so' for the file in this folder\n"));
}

TEST_F(BadInputTest, ALibraryThatIsNoProviderIsStatus3) {
  const std::string said = Refusal(Bare({"list", "-m", "libc.so.6"}), 3);
  EXPECT_THAT(said, HasSubstr("Library 'libc.so.6' does not seem to be a PKCS#11 module"));
  EXPECT_THAT(said, HasSubstr("check that --module names the PKCS#11 library of the card (without a"
                              " folder it is looked for among the system's libraries), and"));
}

TEST_F(BadInputTest, AProviderThatDoesNotStartIsStatus3) {
  environment_["SOFTHSM2_CONF"] = File("missing.conf");
  EXPECT_THAT(Refusal(Cardcert({"list"}), 3),
              HasSubstr("Error initializing PKCS#11 module '" SOFTHSM2_LIBRARY "': 5"));
}

TEST_F(BadInputTest, EveryCommandSaysWhenTheProviderCannotBeLoaded) {
  const std::string in = Write("in", "x");
  const std::string pin = PinFile();
  for (const Words& words : {Words{"present", "10"}, Words{"watch"},
                             Words{"sign", "10", "--in", in, "--pin-file", pin}}) {
    Words command = words;
    command.insert(command.end(), {"-m", "/no/such/provider.so"});
    EXPECT_EQ(Bare(command).status, 3) << words[0];
  }
}

TEST_F(BadInputTest, ASerialIsHexadecimal) {
  for (const char* const serial : {"12g4", "", ":", "0x"}) {
    EXPECT_THAT(Refusal(Cardcert({"present", serial})), HasSubstr("is no serial number"));
    EXPECT_THAT(Refusal(Cardcert({"sign", serial})), HasSubstr("is no serial number"));
  }
}

TEST_F(BadInputTest, NumbersOfWatchAreChecked) {
  EXPECT_THAT(Refusal(Cardcert({"watch", "--interval", "0"})), HasSubstr("--interval"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--interval", "soon"})),
              HasSubstr("cardcert: --interval: 'soon' is no number from 0.05 to 86400\n"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--interval", "nan"})), HasSubstr("--interval"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--interval", "inf"})), HasSubstr("--interval"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--count", "0"})),
              HasSubstr("cardcert: --count: '0' is no number from 1 to 1000000000\n"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--count", "99999999999999999999"})),
              HasSubstr("--count"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--count", "-1"})), HasSubstr("--count"));
}

TEST_F(BadInputTest, SignChecksItsOptionsFirst) {
  const std::string in = Write("in", "x");
  EXPECT_THAT(Refusal(Cardcert({"sign", "10", "--digest", "md5"})), HasSubstr("--digest"));
  EXPECT_THAT(Refusal(Cardcert({"sign", "10", "--encoding", "pem"})), HasSubstr("--encoding"));
  EXPECT_THAT(Refusal(Cardcert({"sign", "10", "--in", File("missing")})),
              HasSubstr("cannot read '" + File("missing") + "': No such file"));
  EXPECT_THAT(Refusal(Cardcert({"sign", "10", "--in", in, "--out", File("no/out")})),
              HasSubstr("cannot write '" + File("no/out") + "': No such file"));
  EXPECT_THAT(Refusal(Cardcert({"sign", "10", "--pin", "env:P", "--pin-file", PinFile()})),
              HasSubstr("excludes"));
}

TEST_F(BadInputTest, APinIsNotTakenFromTheCommandLineNorRepeated) {
  const std::string said = Refusal(Cardcert({"sign", "10", "--pin", "246810"}));
  EXPECT_THAT(said, HasSubstr("--pin takes env:NAME"));
  EXPECT_THAT(said, Not(HasSubstr("246810")));
}

TEST_F(BadInputTest, HelpAndVersionAreData) {
  for (const Words& words :
       {Words{"--help"}, Words{"-h"}, Words{"list", "--help"}, Words{"sign", "--help"},
        Words{"-h", "list"}, Words{"--help", "sign", "10"}, Words{"help"}, Words{"help", "list"}}) {
    const Finished run = Bare(words);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, Bare({"--help"}).out);
    EXPECT_THAT(run.out, HasSubstr("Exit status:"));
    EXPECT_THAT(run.out, HasSubstr("Examples:"));
    EXPECT_EQ(run.err, "");
  }
  EXPECT_EQ(Bare({"--version"}).out.compare(0, 9, "cardcert "), 0);
  EXPECT_THAT(Refusal(Cardcert({"list", "--version"})), HasSubstr("list has no option"));
}

}  // namespace
