// Wrong command lines: status 2, a message that says what is wrong, and no side effects.
#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// The messages about wrong arguments of a command.
std::string UsageError(const std::string& command, const std::string& text) {
  return Error(text) + Hint("see cardcert " + command + " --help");
}
// The messages about a malformed value of --name or --filter.
std::string FormError(const std::string& option, const std::string& text) {
  return Error(text) + Hint("cardcert list --help describes the form of " + option);
}

class CommandLineTest : public CardcertTest {};

TEST_F(CommandLineTest, RequiresACommand) {
  EXPECT_EQ(
      Refusal(CardcertWithoutModule({})),
      Error("a command is needed: list, present, watch, sign, help") + Hint("see cardcert --help"));
  EXPECT_EQ(Refusal(CardcertWithoutModule({"lst"})),
            Error("there is no command 'lst': use list, present, watch, sign, help") +
                Hint("see cardcert --help"));
  EXPECT_EQ(Refusal(CardcertWithoutModule({"-m", "x.so", "list"})),
            Error("'-m' must come after a command: list, present, watch, sign, help") +
                Hint("see cardcert --help"));
}

TEST_F(CommandLineTest, RequiresExactlyOneModule) {
  EXPECT_EQ(Refusal(CardcertWithoutModule({"list"})),
            UsageError("list", "list needs --module PATH"));
  EXPECT_EQ(Refusal(CardcertWithoutModule({"list", "-m"})),
            UsageError("list", "--module needs a value"));
  EXPECT_EQ(Refusal(Cardcert({"list", "-m", "x.so"})),
            UsageError("list", "--module is given more than once"));
}

TEST_F(CommandLineTest, RefusesUnknownOptionsAndExtraArguments) {
  EXPECT_EQ(Refusal(Cardcert({"list", "--jsn"})), UsageError("list", "list has no option '--jsn'"));
  EXPECT_EQ(Refusal(Cardcert({"list", "--first", "more", "-s", "words"})),
            UsageError("list", "list has no option '--first' or '-s'"));
  EXPECT_EQ(Refusal(Cardcert({"list", "more"})),
            UsageError("list", "unexpected argument 'more' for list"));
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
  EXPECT_EQ(Refusal(Cardcert({"list", "--json=false"})),
            UsageError("list", "--json: takes no value"));
  EXPECT_EQ(Refusal(Cardcert({"list", "--matching=0"})),
            UsageError("list", "--matching: takes no value"));
  EXPECT_EQ(Refusal(Cardcert({"watch", "--json=1", "--count", "1"})),
            UsageError("watch", "--json: takes no value"));
  const std::string err = Refusal(Cardcert({"sign", "10", "--batch=246810"}));
  EXPECT_EQ(err, UsageError("sign", "--batch: takes no value"));
  EXPECT_THAT(err, Not(HasSubstr("246810")));
}

TEST_F(CommandLineTest, EscapesControlCharactersInMessages) {
  EXPECT_EQ(Refusal(Cardcert({"list", "--log-level", "\033[2J"})),
            UsageError("list", "--log-level: '\\x1b[2J' is not a number between 0 and 5"));
}

TEST_F(CommandLineTest, RefusesMalformedNameSpecificationsWithReason) {
  EXPECT_EQ(Refusal(Cardcert({"list", "--name", "subject"})),
            FormError("--name", "invalid --name 'subject': Malformed token \"subject\""));
  EXPECT_EQ(Refusal(Cardcert({"list", "--name", "Subject_CN"})),
            FormError("--name", "invalid --name 'Subject_CN': Unknown name category \"Subject\""));
  EXPECT_EQ(
      Refusal(Cardcert({"list", "--name", "subject_CN, card_label"})),
      FormError(
          "--name",
          "invalid --name 'subject_CN, card_label': Malformed certificate naming specification"));
  EXPECT_EQ(Refusal(Cardcert({"list", "--name", ""})),
            FormError("--name", "invalid --name '': Ignoring empty name specification"));
  EXPECT_EQ(
      Refusal(Cardcert({"list", "--name", "subject_CN\\"})),
      FormError("--name",
                "invalid --name 'subject_CN\\': Unable to parse certificate naming specification"));
}

TEST_F(CommandLineTest, RefusesMalformedFiltersWithReason) {
  EXPECT_EQ(
      Refusal(Cardcert({"list", "--filter", "a|b"})),
      FormError("--filter", "invalid --filter 'a|b': Smartcard filter does not have 3 fields"));
  EXPECT_EQ(
      Refusal(Cardcert({"list", "--filter", "a|commonName|0"})),
      FormError("--filter", "invalid --filter 'a|commonName|0': Malformed token \"commonName\""));
  EXPECT_EQ(Refusal(Cardcert({"list", "--filter", "a||0", "--filter", ""})),
            FormError("--filter", "invalid --filter '': Smartcard filter does not have 3 fields"));
}

TEST_F(CommandLineTest, WarnsHowANonNumericKeyUsageIsRead) {
  const std::map<std::string, std::string> misread = {
      {"digitalSignature", "0, which requires nothing"},
      {"", "0, which requires nothing"},
      {" 128", "128"},
      {"12xyz", "12"},
      {"128 ", "128"},
      {"+-1", "0, which requires nothing"},
      {"99999999999999999999", "-1"}};
  for (const auto& [usage, meaning] : misread) {
    const Finished run = Cardcert({"list", "--filter", "a||64", "--filter", "a||" + usage});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, Warning("--filter 'a||" + usage + "': the key usage '" + usage +
                               "' is not a number in range; it counts as " + meaning) +
                           LeftOutWarning());
  }
  for (const char* const usage : {"128", "-1", "+64", "0128", "-0"})
    EXPECT_THAT(Cardcert({"list", "--filter", std::string("a||") + usage}).err,
                Not(HasSubstr("the key usage")));
}

TEST_F(CommandLineTest, RequiresALogLevelBetween0And5) {
  EXPECT_EQ(Refusal(Cardcert({"list", "--log-level", "6"})),
            UsageError("list", "--log-level: '6' is not a number between 0 and 5"));
  EXPECT_EQ(Refusal(Cardcert({"list", "--log-level", "-1"})),
            UsageError("list", "--log-level: '-1' is not a number between 0 and 5"));
  EXPECT_EQ(Refusal(Cardcert({"list", "--log-level", "all"})),
            UsageError("list", "--log-level: 'all' is not a number between 0 and 5"));
}

TEST_F(CommandLineTest, RefusesALogFileThatCannotBeWritten) {
  EXPECT_EQ(Refusal(Cardcert({"list", "--log-file", File("no/log")})),
            Error("cannot write the log file '" + File("no/log") + "': No such file or directory"));
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
    const std::string error = Error("'" + std::string(serial) + "' is not a serial number") +
                              Hint("give the hexadecimal digits that cardcert list shows");
    EXPECT_EQ(Refusal(Cardcert({"present", serial})), error);
    EXPECT_EQ(Refusal(Cardcert({"sign", serial})), error);
  }
}

TEST_F(CommandLineTest, ChecksWatchIntervalAndCount) {
  EXPECT_EQ(Refusal(Cardcert({"watch", "--interval", "0"})),
            UsageError("watch", "--interval: '0' is not a number between 0.05 and 86400"));
  EXPECT_EQ(Refusal(Cardcert({"watch", "--interval", "soon"})),
            UsageError("watch", "--interval: 'soon' is not a number between 0.05 and 86400"));
  EXPECT_EQ(Refusal(Cardcert({"watch", "--interval", "nan"})),
            UsageError("watch", "--interval: 'nan' is not a number between 0.05 and 86400"));
  EXPECT_EQ(Refusal(Cardcert({"watch", "--interval", "inf"})),
            UsageError("watch", "--interval: 'inf' is not a number between 0.05 and 86400"));
  EXPECT_EQ(Refusal(Cardcert({"watch", "--count", "0"})),
            UsageError("watch", "--count: '0' is not a number between 1 and 1000000000"));
  EXPECT_EQ(Refusal(Cardcert({"watch", "--count", "99999999999999999999"})),
            UsageError("watch",
                       "--count: '99999999999999999999' is not a number between 1 and 1000000000"));
  EXPECT_EQ(Refusal(Cardcert({"watch", "--count", "-1"})),
            UsageError("watch", "--count: '-1' is not a number between 1 and 1000000000"));
}

TEST_F(CommandLineTest, ChecksSignOptionsBeforeLoadingTheProvider) {
  const std::string in = Write("in", "x");
  EXPECT_EQ(Refusal(Cardcert({"sign", "10", "--digest", "md5"})),
            UsageError("sign",
                       "--digest: 'md5' is not one of sha256, sha384, sha512, sha224, sha1, none"));
  EXPECT_EQ(Refusal(Cardcert({"sign", "10", "--encoding", "pem"})),
            UsageError("sign", "--encoding: 'pem' is not one of raw, base64, hex"));
  EXPECT_EQ(Refusal(Cardcert({"sign", "10", "--in", File("missing")})),
            Error("cannot read '" + File("missing") + "': No such file or directory"));
  EXPECT_EQ(Refusal(Cardcert({"sign", "10", "--in", in, "--out", File("no/out")})),
            Error("cannot write '" + File("no/out") + "': No such file or directory"));
  EXPECT_EQ(Refusal(Cardcert({"sign", "10", "--pin", "env:P", "--pin-file", PinFile()})),
            UsageError("sign", "--pin-file and --pin exclude each other"));
}

TEST_F(CommandLineTest, RefusesAPinOnTheCommandLineWithoutEchoingIt) {
  const std::string err = Refusal(Cardcert({"sign", "10", "--pin", "246810"}));
  EXPECT_EQ(err, Error("--pin takes env:NAME, the name of an environment variable, because other "
                       "users can read the command line") +
                     Hint("--pin-file FILE reads the PIN from a file"));
  EXPECT_THAT(err, Not(HasSubstr("246810")));
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
  EXPECT_EQ(Refusal(CardcertWithoutModule({"help", "lst"})),
            Error("there is no command 'lst': use list, present, watch, sign, help") +
                Hint("see cardcert --help"));
  EXPECT_EQ(CardcertWithoutModule({"--version"}).out.compare(0, 9, "cardcert "), 0);
  EXPECT_EQ(Refusal(Cardcert({"list", "--version"})),
            UsageError("list", "list has no option '--version'"));
}

}  // namespace
