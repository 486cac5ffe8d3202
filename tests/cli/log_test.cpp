// --log-level and --log-file.
#include <sys/stat.h>

#include <regex>

#include "cli/cardcert_fixture.h"

namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class LogTest : public CardcertTest {};

TEST_F(LogTest, IsOffByDefault) {
  const Finished run = Cardcert({"list"});
  EXPECT_THAT(run.err, Not(HasSubstr("Loaded PKCS#11 module")));
  EXPECT_TRUE(AllLinesAreMessages(run.err));
}

TEST_F(LogTest, WritesToStandardErrorUpToTheLevel) {
  const std::string level3 = Cardcert({"list", "--log-level", "3"}).err;
  EXPECT_THAT(level3, ContainsRegex("Z 3 Loaded PKCS#11 module '" SOFTHSM2_LIBRARY "'"));
  EXPECT_THAT(level3, Not(ContainsRegex("Z 5 ")));
  // Messages that the log has shown are explained but not repeated.
  EXPECT_THAT(level3, ContainsRegex("Z 3 Unable to read public key from certificate"));
  EXPECT_THAT(level3, Not(HasSubstr("cardcert: warning: Unable")));
  EXPECT_THAT(level3, HasSubstr("cardcert: warning: left out: only certificates with an RSA key"));
  EXPECT_THAT(Cardcert({"list", "--log-level", "5"}).err, ContainsRegex("Z 5 Fetching tokens"));
  EXPECT_THAT(Cardcert({"list", "--log-level", "0"}).err, Not(HasSubstr("Loaded")));
}

TEST_F(LogTest, EscapesControlCharactersOnStandardError) {
  const std::string found = Cardcert({"list", "--log-level", "5"}).err;
  EXPECT_THAT(found, HasSubstr("\\u{202e}txt.exe"));
  EXPECT_THAT(found, Not(HasSubstr("\u202e")));
  EXPECT_THAT(found, HasSubstr("Jürgen 山田"));
  const std::string lost =
      CardcertWithoutModule({"list", "-m", "/no/\u009b2J.so", "--log-level", "5"}).err;
  EXPECT_THAT(lost, HasSubstr("Z 2 Unable to load PKCS#11 module '/no/\\u{9b}2J.so'"));
  EXPECT_THAT(lost, Not(HasSubstr("\u009b")));
}

TEST_F(LogTest, WritesEverythingToTheFileByDefault) {
  const Finished run = Cardcert({"list", "--log-file", File("log")});
  EXPECT_TRUE(AllLinesAreMessages(run.err));
  const std::string log = ReadFile(File("log"));
  EXPECT_THAT(log, HasSubstr(" 3 Loaded PKCS#11 module"));
  EXPECT_THAT(log, HasSubstr(" 5 Serial: 4fa107"));
  struct stat info = {};
  ASSERT_EQ(stat(File("log").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(LogTest, LimitsTheFileToTheLevel) {
  Cardcert({"list", "--log-file", File("log"), "--log-level", "3"});
  EXPECT_THAT(ReadFile(File("log")), HasSubstr(" 3 Loaded"));
  EXPECT_THAT(ReadFile(File("log")), Not(HasSubstr(" 5 ")));
}

TEST_F(LogTest, ShowsReasonOfFailureAtEveryLevel) {
  const Finished quiet = CardcertWithoutModule({"list", "-m", "/no/such.so", "--log-level", "0"});
  const std::string error =
      LoadError("/no/such.so", "cannot open shared object file: No such file or directory",
                "check the path given with --module: there is no such file");
  EXPECT_EQ(quiet.err, error);
  const Finished to_file =
      CardcertWithoutModule({"list", "-m", "/no/such.so", "--log-file", File("log")});
  EXPECT_EQ(to_file.err, error);
  EXPECT_THAT(ReadFile(File("log")), HasSubstr(" 2 Unable to load PKCS#11 module '/no/such.so':"));
}

TEST_F(LogTest, DoesNotRepeatAFailureThatItHasShown) {
  const std::string err =
      CardcertWithoutModule({"list", "-m", "/no/such.so", "--log-level", "3"}).err;
  const std::string stamp = "[-0-9T:.]+Z";
  EXPECT_EQ(std::regex_replace(err, std::regex(stamp), "TIME"),
            "TIME 2 Unable to load PKCS#11 module '/no/such.so':\n"
            "TIME 2 /no/such.so: cannot open shared object file: No such file or directory\n" +
                Hint("check the path given with --module: there is no such file") +
                Hint(kUsualPlaces));
}

TEST_F(LogTest, ExplainsASignatureFailureThatItHasShown) {
  const std::string in = Write("in", "x");
  const std::string err = Cardcert({"sign", "6e6f", "--in", in, "--out", File("out"), "--log-level",
                                    "3", "--pin-file", PinFile()})
                              .err;
  EXPECT_THAT(err, EndsWith("Z 3 Signature operation failed (102)\n" +
                            Error("the token has no private key that belongs to this "
                                  "certificate") +
                            Error("nothing was signed")));
  EXPECT_THAT(err, Not(HasSubstr("cardcert: error: Signature operation failed")));
}

TEST_F(LogTest, NeverContainsAPin) {
  const std::string in = Write("in", "x");
  const Finished run = Cardcert({"sign", "4fa107", "--in", in, "--out", File("out"), "--log-level",
                                 "5", "--pin-file", PinFile("739174")});
  EXPECT_EQ(run.status, 7);
  EXPECT_THAT(run.err, HasSubstr("Token login error: 160"));
  // The name of the PIN file, which contains the PIN, must not appear either.
  EXPECT_THAT(run.err + run.out, Not(HasSubstr("739174")));
}

}  // namespace
