// Wrong command lines: status 2, a message that says what is wrong, and no side effects.
#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CommandLineTest : public CardcertTest {};

TEST_F(CommandLineTest, RequiresACommand) {
  EXPECT_THAT(Refusal(CardcertWithoutModule({})), HasSubstr("see cardcert --help"));
  EXPECT_THAT(Refusal(CardcertWithoutModule({"lst"})),
              HasSubstr("cardcert: there is no command 'lst'"));
  EXPECT_THAT(Refusal(CardcertWithoutModule({"-m", "x.so", "list"})),
              HasSubstr("cardcert: '-m' has to come after a command: list, present"));
}

TEST_F(CommandLineTest, RequiresExactlyOneModule) {
  EXPECT_THAT(Refusal(CardcertWithoutModule({"list"})), HasSubstr("--module"));
  EXPECT_THAT(Refusal(CardcertWithoutModule({"list", "-m"})),
              HasSubstr("cardcert: --module needs a value\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "-m", "x.so"})),
              HasSubstr("cardcert: --module is given more than once\n"));
}

TEST_F(CommandLineTest, RefusesUnknownOptionsAndExtraArguments) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--jsn"})),
              HasSubstr("cardcert: list has no option '--jsn'\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--first", "more", "-s", "words"})),
              HasSubstr("cardcert: list has no option '--first', '-s', and was given 2 words"));
  EXPECT_THAT(Refusal(Cardcert({"list", "more"})),
              HasSubstr("cardcert: list was given 1 word too many\n"));
}

TEST_F(CommandLineTest, DoesNotEchoAPinAfterAMistypedOption) {
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

TEST_F(CommandLineTest, RefusesValuesForFlags) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--json=false"})),
              HasSubstr("cardcert: --json takes no value\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--matching=0"})), HasSubstr("--matching takes no value"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--json=1", "--count", "1"})),
              HasSubstr("--json takes no value"));
  const std::string said = Refusal(Cardcert({"sign", "10", "--batch=246810"}));
  EXPECT_THAT(said, HasSubstr("--batch takes no value"));
  EXPECT_THAT(said, Not(HasSubstr("246810")));
}

TEST_F(CommandLineTest, EscapesControlCharactersInMessages) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "\033[2J"})), HasSubstr("\\x1b[2J"));
}

TEST_F(CommandLineTest, RefusesMalformedNameSpecificationsWithReason) {
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

TEST_F(CommandLineTest, RefusesMalformedFiltersWithReason) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a|b"})),
              HasSubstr("cardcert: --filter 'a|b': Smartcard filter does not have 3 fields\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a|commonName|0"})),
              HasSubstr("Malformed token \"commonName\""));
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a||0", "--filter", ""})),
              HasSubstr("--filter ''"));
}

TEST_F(CommandLineTest, WarnsHowANonNumericKeyUsageIsRead) {
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

TEST_F(CommandLineTest, RequiresALogLevelBetween0And5) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "6"})),
              HasSubstr("cardcert: --log-level: '6' is no number from 0 to 5\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "-1"})), HasSubstr("--log-level"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "all"})), HasSubstr("--log-level"));
}

TEST_F(CommandLineTest, RefusesALogFileThatCannotBeWritten) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-file", File("no/log")})),
              HasSubstr("cannot write the log file '" + File("no/log") + "': No such file"));
}

TEST_F(CommandLineTest, ChecksEverythingBeforeLoadingOrWriting) {
  // Otherwise the status would be 3, and the log file would exist.
  const Words command = {"list", "-m", "/no/such/provider.so", "--log-file", File("log")};
  EXPECT_EQ(CardcertWithoutModule(Concat(command, {"--name", "nonsense"})).status, 2);
  EXPECT_FALSE(Exists(File("log")));
  EXPECT_EQ(CardcertWithoutModule(command).status, 3);
  EXPECT_TRUE(Exists(File("log")));
}

TEST_F(CommandLineTest, RefusesSerialsThatAreNotHexadecimal) {
  for (const char* const serial : {"12g4", "", ":", "0x"}) {
    EXPECT_THAT(Refusal(Cardcert({"present", serial})), HasSubstr("is no serial number"));
    EXPECT_THAT(Refusal(Cardcert({"sign", serial})), HasSubstr("is no serial number"));
  }
}

TEST_F(CommandLineTest, ChecksWatchIntervalAndCount) {
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

TEST_F(CommandLineTest, ChecksSignOptionsBeforeLoadingTheProvider) {
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

TEST_F(CommandLineTest, RefusesAPinOnTheCommandLineWithoutEchoingIt) {
  const std::string said = Refusal(Cardcert({"sign", "10", "--pin", "246810"}));
  EXPECT_THAT(said, HasSubstr("--pin takes env:NAME"));
  EXPECT_THAT(said, Not(HasSubstr("246810")));
}

TEST_F(CommandLineTest, PrintsHelpAndVersionToStandardOutput) {
  for (const Words& words :
       {Words{"--help"}, Words{"-h"}, Words{"list", "--help"}, Words{"sign", "--help"},
        Words{"-h", "list"}, Words{"--help", "sign", "10"}, Words{"help"}, Words{"help", "list"}}) {
    const Finished run = CardcertWithoutModule(words);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, CardcertWithoutModule({"--help"}).out);
    EXPECT_THAT(run.out, HasSubstr("Exit status:"));
    EXPECT_THAT(run.out, HasSubstr("Examples:"));
    EXPECT_EQ(run.err, "");
  }
  EXPECT_EQ(CardcertWithoutModule({"--version"}).out.compare(0, 9, "cardcert "), 0);
  EXPECT_THAT(Refusal(Cardcert({"list", "--version"})), HasSubstr("list has no option"));
}

}  // namespace
