// cardcert watch
#include <algorithm>
#include <chrono>
#include <csignal>
#include <regex>
#include <sstream>

#include "cli/cardcert_fixture.h"

namespace {

using nlohmann::json;

class WatchTest : public CardcertTest {};

TEST_F(WatchTest, StartsWithTheList) {
  const Finished watch = Cardcert({"watch", "--count", "1"});
  EXPECT_EQ(watch.status, 0);
  EXPECT_EQ(std::count(watch.out.begin(), watch.out.end(), '\n'), 11);
  EXPECT_EQ(watch.out.compare(0, 4, "NAME"), 0);
}

TEST_F(WatchTest, ChecksAtTheGivenInterval) {
  using std::chrono::milliseconds;
  const auto elapsed = [this](const std::string& count) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(Cardcert({"watch", "--count", count, "--interval", "0.3"}).status, 0);
    return std::chrono::steady_clock::now() - before;
  };
  // A busy machine makes some runs slower, but never faster.
  auto shortest_start = elapsed("1");
  auto shortest = elapsed("3");
  EXPECT_GE(shortest, milliseconds(600));
  for (int i = 0; i < 10 && shortest - shortest_start >= milliseconds(900); ++i) {
    shortest_start = std::min(shortest_start, elapsed("1"));
    shortest = std::min(shortest, elapsed("3"));
    EXPECT_GE(shortest, milliseconds(600));
  }
  EXPECT_LT(shortest - shortest_start, milliseconds(900));
}

TEST_F(WatchTest, ShowsChangesWithoutEvents) {
  Process watch(Command({"watch", "--interval", "0.1"}), environment_);
  ASSERT_TRUE(watch.WaitForOutput("listing again every 3 seconds"));
  RemoveFromToken("rsa1024");
  EXPECT_TRUE(watch.WaitForOutput("\n- Short  1024  1024 bits")) << watch.out();
  AddToToken("rsa1024", "77");
  EXPECT_TRUE(watch.WaitForOutput("\n+ Short  1024  1024 bits")) << watch.out();
  watch.Signal(SIGINT);
  const Finished finished = watch.Wait();
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err.find("listing again"), finished.err.rfind("listing again"));
}

TEST_F(WatchTest, ReportsTheEffectiveInterval) {
  EXPECT_EQ(
      Cardcert({"watch", "--count", "2", "--interval", "2"}).err,
      LeftOutWarning() +
          Progress("the provider has reported no events so far; listing again every 4 seconds"));
}

TEST_F(WatchTest, WritesJsonLines) {
  Process watch(Command({"watch", "--json", "--interval", "0.1"}), environment_);
  ASSERT_TRUE(watch.WaitForOutput("listing again"));
  RemoveFromToken("rsa3072");
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
