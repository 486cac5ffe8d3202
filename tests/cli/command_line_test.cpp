// Wrong command lines: status 2, a message that says what is wrong, and no side effects.
#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CommandLineTest : public CardcertTest {};

TEST_F(CommandLineTest, RequiresACommand) {
  EXPECT_THAT(Refusal(CardcertWithoutModule({})), HasSubstr("see cardcert --help"));
  EXPECT_THAT(Refusal(CardcertWithoutModule({"lst"})),
              HasSubstr("cardcert: error: there is no command 'lst'"));
  EXPECT_THAT(Refusal(CardcertWithoutModule({"-m", "x.so", "list"})),
              HasSubstr("cardcert: error: '-m' must come after a command: list, present"));
}

TEST_F(CommandLineTest, RequiresExactlyOneModule) {
  EXPECT_THAT(Refusal(CardcertWithoutModule({"list"})), HasSubstr("--module"));
  EXPECT_THAT(Refusal(CardcertWithoutModule({"list", "-m"})),
              HasSubstr("cardcert: error: --module needs a value\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "-m", "x.so"})),
              HasSubstr("cardcert: error: --module is given more than once\n"));
}

TEST_F(CommandLineTest, RefusesUnknownOptionsAndExtraArguments) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--jsn"})),
              HasSubstr("cardcert: error: list has no option '--jsn'\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--first", "more", "-s", "words"})),
              HasSubstr("cardcert: error: list has no option '--first' or '-s'\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "more"})),
              HasSubstr("cardcert: error: unexpected argument 'more' for list\n"));
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
              HasSubstr("cardcert: error: --json: takes no value\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--matching=0"})), HasSubstr("--matching: takes no value"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--json=1", "--count", "1"})),
              HasSubstr("--json: takes no value"));
  const std::string said = Refusal(Cardcert({"sign", "10", "--batch=246810"}));
  EXPECT_THAT(said, HasSubstr("--batch: takes no value"));
  EXPECT_THAT(said, Not(HasSubstr("246810")));
}

TEST_F(CommandLineTest, EscapesControlCharactersInMessages) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "\033[2J"})), HasSubstr("\\x1b[2J"));
}

TEST_F(CommandLineTest, RefusesMalformedNameSpecificationsWithReason) {
  EXPECT_THAT(
      Refusal(Cardcert({"list", "--name", "subject"})),
      HasSubstr("cardcert: error: invalid --name 'subject': Malformed token \"subject\"\n"));
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
  EXPECT_THAT(
      Refusal(Cardcert({"list", "--filter", "a|b"})),
      HasSubstr(
          "cardcert: error: invalid --filter 'a|b': Smartcard filter does not have 3 fields\n"));
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a|commonName|0"})),
              HasSubstr("Malformed token \"commonName\""));
  EXPECT_THAT(Refusal(Cardcert({"list", "--filter", "a||0", "--filter", ""})),
              HasSubstr("--filter ''"));
}

TEST_F(CommandLineTest, WarnsHowANonNumericKeyUsageIsRead) {
  const std::map<std::string, std::string> misread = {
      {"digitalSignature", "0, which requires nothing\n"},
      {"", "0, which requires nothing\n"},
      {" 128", "128\n"},
      {"12xyz", "12\n"},
      {"128 ", "128\n"},
      {"+-1", "0, which requires nothing\n"},
      {"99999999999999999999", "-1\n"}};
  for (const auto& [usage, meaning] : misread) {
    const Finished run = Cardcert({"list", "--filter", "a||64", "--filter", "a||" + usage});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err,
                HasSubstr("cardcert: warning: --filter 'a||" + usage + "': the key usage '" +
                          usage + "' is not a number in range; it counts as " + meaning));
  }
  for (const char* const usage : {"128", "-1", "+64", "0128", "-0"})
    EXPECT_THAT(Cardcert({"list", "--filter", std::string("a||") + usage}).err,
                Not(HasSubstr("the key usage")));
}

TEST_F(CommandLineTest, RequiresALogLevelBetween0And5) {
  EXPECT_THAT(Refusal(Cardcert({"list", "--log-level", "6"})),
              HasSubstr("cardcert: error: --log-level: '6' is not a number between 0 and 5\n"));
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
    EXPECT_THAT(Refusal(Cardcert({"present", serial})), HasSubstr("is not a serial number"));
    EXPECT_THAT(Refusal(Cardcert({"sign", serial})), HasSubstr("is not a serial number"));
  }
}

TEST_F(CommandLineTest, ChecksWatchIntervalAndCount) {
  EXPECT_THAT(Refusal(Cardcert({"watch", "--interval", "0"})), HasSubstr("--interval"));
  EXPECT_THAT(
      Refusal(Cardcert({"watch", "--interval", "soon"})),
      HasSubstr("cardcert: error: --interval: 'soon' is not a number between 0.05 and 86400\n"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--interval", "nan"})), HasSubstr("--interval"));
  EXPECT_THAT(Refusal(Cardcert({"watch", "--interval", "inf"})), HasSubstr("--interval"));
  EXPECT_THAT(
      Refusal(Cardcert({"watch", "--count", "0"})),
      HasSubstr("cardcert: error: --count: '0' is not a number between 1 and 1000000000\n"));
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
              HasSubstr("--pin-file and --pin exclude each other"));
}

TEST_F(CommandLineTest, RefusesAPinOnTheCommandLineWithoutEchoingIt) {
  const std::string said = Refusal(Cardcert({"sign", "10", "--pin", "246810"}));
  EXPECT_THAT(said, HasSubstr("--pin takes env:NAME"));
  EXPECT_THAT(said, Not(HasSubstr("246810")));
}

TEST_F(CommandLineTest, PrintsHelpAndVersionToStandardOutput) {
  const auto expect_help = [this](const Words& words, const std::string& usage) {
    const Finished run = CardcertWithoutModule(words);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("Usage: cardcert " + usage));
    EXPECT_THAT(run.out, HasSubstr("\nExamples:\n"));
    EXPECT_EQ(run.err, "");
  };
  for (const Words& words : {Words{"--help"}, Words{"-h"}, Words{"help"}}) {
    expect_help(words, "COMMAND [OPTION]...\n");
    EXPECT_THAT(CardcertWithoutModule(words).out, HasSubstr("\nExit status:\n"));
  }
  for (const Words& words :
       {Words{"list", "--help"}, Words{"list", "-h"}, Words{"-h", "list"}, Words{"help", "list"},
        Words{"list", "--log-level", "9", "--help"}, Words{"list", "--jsn", "--help"}})
    expect_help(words, "list --module PATH [OPTION]...\n");
  for (const Words& words : {Words{"sign", "--help"}, Words{"--help", "sign", "10"}})
    expect_help(words, "sign SERIAL --module PATH [OPTION]...\n");
  EXPECT_THAT(Refusal(CardcertWithoutModule({"help", "lst"})), HasSubstr("no command 'lst'"));
  EXPECT_EQ(CardcertWithoutModule({"--version"}).out.compare(0, 9, "cardcert "), 0);
  EXPECT_THAT(Refusal(Cardcert({"list", "--version"})), HasSubstr("list has no option"));
}

}  // namespace
