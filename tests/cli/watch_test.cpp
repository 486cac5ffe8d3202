// cardcert watch
#include "cli/cardcert_fixture.h"

#include <chrono>
#include <csignal>
#include <regex>
#include <sstream>

namespace {

using nlohmann::json;

class WatchTest : public CardcertTest {
 protected:
  // Takes the object with the label from the token "first", as somebody else at the token would.
  void Remove(const std::string& label) const {
    const Finished run = RunProgram(
        {"pkcs11-tool", "--module", SOFTHSM2_LIBRARY, "--token-label", "first", "--login", "--pin",
         "1234", "--type", "cert", "--delete-object", "--label", label},
        environment_);
    ASSERT_EQ(run.status, 0) << run.err;
  }
  void Add(const std::string& name) const {
    OpenSsl({"x509", "-in", Made(name + ".pem"), "-outform", "DER", "-out", File("der")});
    const Finished run = RunProgram(
        {"pkcs11-tool", "--module", SOFTHSM2_LIBRARY, "--token-label", "first", "--login", "--pin",
         "1234", "--type", "cert", "--write-object", File("der"), "--id", "77", "--label", name},
        environment_);
    ASSERT_EQ(run.status, 0) << run.err;
  }
};

TEST_F(WatchTest, StartsWithTheList) {
  const Finished watch = Cardcert({"watch", "--count", "1"});
  EXPECT_EQ(watch.status, 0);
  EXPECT_EQ(std::count(watch.out.begin(), watch.out.end(), '\n'), 11);
  EXPECT_EQ(watch.out.compare(0, 4, "NAME"), 0);
}

TEST_F(WatchTest, ChecksAtTheGivenInterval) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(Cardcert({"watch", "--count", "3", "--interval", "0.3"}).status, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(600));
}

TEST_F(WatchTest, ReadsADecimalPointInALocaleWithCommas) {
  Write("comma.def",
        "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n");
  RunProgram({"localedef", "--force", "--inputfile", File("comma.def"), File("comma")});
  environment_.erase("LC_ALL");
  environment_["LOCPATH"] = File(".");
  // Debian 12's setlocale() loses the path's parts when it is for one category.
  environment_["ASAN_OPTIONS"] = "detect_leaks=0";
  environment_["LC_NUMERIC"] = "comma";
  ASSERT_EQ(RunProgram({"/usr/bin/printf", "%.1f", "1"}, environment_).out, "1,0");
  const Finished watch = Cardcert({"watch", "--count", "1", "--interval", "0.5"});
  EXPECT_EQ(watch.status, 0) << watch.err;
}

TEST_F(WatchTest, ShowsChangesWithoutEvents) {
  Process watch(Command({"watch", "--interval", "0.1"}), environment_);
  ASSERT_TRUE(watch.WaitForOutput("listing again every 3 seconds"));
  Remove("rsa1024");
  EXPECT_TRUE(watch.WaitForOutput("\n- Short  1024  1024 bits")) << watch.out();
  Add("rsa1024");
  EXPECT_TRUE(watch.WaitForOutput("\n+ Short  1024  1024 bits")) << watch.out();
  watch.Signal(SIGINT);
  const Finished finished = watch.Wait();
  EXPECT_EQ(finished.status, 0);
  // Said once.
  EXPECT_EQ(finished.err.find("listing again"), finished.err.rfind("listing again"));
}

TEST_F(WatchTest, ReportsTheEffectiveInterval) {
  EXPECT_THAT(Cardcert({"watch", "--count", "2", "--interval", "2"}).err,
              testing::HasSubstr("listing again every 4 seconds\n"));
}

TEST_F(WatchTest, WritesJsonLines) {
  Process watch(Command({"watch", "--json", "--interval", "0.1"}), environment_);
  ASSERT_TRUE(watch.WaitForOutput("listing again"));
  Remove("rsa3072");
  EXPECT_TRUE(watch.WaitForOutput("\"removed\""));
  watch.Signal(SIGTERM);
  const Finished finished = watch.Wait();
  EXPECT_EQ(finished.status, 0);

  std::map<std::string, int> events;
  json last;
  std::istringstream lines(finished.out);
  for (std::string line; std::getline(lines, line);) {
    last = json::parse(line);
    ++events[last["event"]];
  }
  EXPECT_EQ(events, (std::map<std::string, int>{{"present", 10}, {"removed", 1}}));
  EXPECT_EQ(last["certificate"]["serial"], "3072");
}

TEST_F(WatchTest, ShowsWhichCertificatesPassTheFilters) {
  const Finished watch =
      Cardcert({"watch", "--count", "1", "--filter", "CA||4", "--name", "card_label,subject_CN"});
  EXPECT_TRUE(std::regex_search(watch.out, std::regex("first / Example CA .*  yes  yes ")));
  EXPECT_TRUE(std::regex_search(watch.out, std::regex("4fa107 .*  no   no ")));
}

}  // namespace
