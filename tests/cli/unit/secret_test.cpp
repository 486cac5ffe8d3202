#include "cli/terminal/secret.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace cardcert::cli {
namespace {

using testing::HasSubstr;

// The memory of all secrets.
struct Pages {
  const unsigned char* begin = nullptr;
  const unsigned char* end = nullptr;
  std::string flags;  // as in /proc/self/smaps
};

// Finds the pages by a flag that nothing else in a test has: wipe on fork. Returns nothing if there
// are none.
std::optional<Pages> SecretPages() {
  std::ifstream maps("/proc/self/smaps");
  Pages pages;
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx ", &begin, &end) == 2) {
      pages.begin = reinterpret_cast<const unsigned char*>(begin);
      pages.end = reinterpret_cast<const unsigned char*>(end);
    } else if (line.compare(0, 8, "VmFlags:") == 0 && line.find(" wf") != std::string::npos) {
      pages.flags = line;
      return pages;
    }
  }
  return std::nullopt;
}

void Fill(Secret* secret, std::size_t length = Secret::kCapacity) {
  for (std::size_t i = 0; i < length; ++i)
    secret->Append('x');
}

// AddressSanitizer replaces mlock() by a function that does nothing.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMlockIsIgnored = true;
#elif defined(__has_feature)
constexpr bool kMlockIsIgnored = __has_feature(address_sanitizer);
#else
constexpr bool kMlockIsIgnored = false;
#endif

TEST(SecretTest, IsLockedAndLeftOutOfCoreFilesAndForks) {
  const Secret secret;
  const std::optional<Pages> pages = SecretPages();
  ASSERT_TRUE(pages);
  EXPECT_EQ(pages->end - pages->begin, sysconf(_SC_PAGESIZE));
  EXPECT_THAT(pages->flags, HasSubstr(" dd"));
  if (!kMlockIsIgnored) {
    EXPECT_THAT(pages->flags, HasSubstr(" lo"));
  }
}

TEST(SecretTest, IsEmptyInAForkedProcess) {
  Secret secret;
  Fill(&secret);
  const pid_t child = fork();
  if (child == 0)
    _exit(secret.length() == 0 && secret.Equals(Secret()) ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(secret.length(), Secret::kCapacity);
}

// Ends the process with status 0 if a secret works although no memory can be locked.
[[noreturn]] void UseSecretWithoutLocking() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_MEMLOCK, &none);
  if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)  // Root may lock memory all the same.
    std::exit(2);
  Secret secret;
  Fill(&secret, 4);
  std::exit(secret.length() == 4 ? 0 : 1);
}

TEST(SecretDeathTest, WorksIfMemoryCannotBeLocked) {
  // Runs in a new process, whose pages are not yet made.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(UseSecretWithoutLocking(), testing::ExitedWithCode(0), "");
}

TEST(SecretTest, ReusesItsMemory) {
  for (int i = 0; i < 1000; ++i) {
    Secret secret;
    EXPECT_EQ(secret.length(), 0U);
    Fill(&secret, 4);
  }
  std::vector<std::unique_ptr<Secret>> secrets;
  for (int i = 0; i < 24; ++i)
    secrets.push_back(std::make_unique<Secret>());
  EXPECT_THROW(
      {
        for (int i = 0; i < 24; ++i)
          secrets.push_back(std::make_unique<Secret>());
      },
      std::bad_alloc);
  secrets.pop_back();
  secrets.push_back(std::make_unique<Secret>());
}

TEST(SecretTest, ReportsInputThatIsTooLong) {
  Secret secret;
  for (int i = 0; i < 128; ++i)
    secret.Append('x');
  EXPECT_FALSE(secret.too_long());
  secret.Append('x');
  EXPECT_TRUE(secret.too_long());
  EXPECT_EQ(secret.length(), 128U);
  secret.Clear();
  EXPECT_EQ(secret.length(), 0U);
  EXPECT_FALSE(secret.too_long());
}

// Returns the parts of a text, to find a text that is only partly cleared.
std::vector<std::string> Parts(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at < text.size(); at += 4)
    parts.push_back(text.substr(at, 4));
  return parts;
}

TEST(SecretTest, ClearsItsMemoryOnDestruction) {
  std::string sentinel;
  for (int i = 0; sentinel.size() < Secret::kCapacity; ++i)
    sentinel += "s" + std::to_string(100 + i);
  auto secret = std::make_unique<Secret>();
  const std::optional<Pages> pages = SecretPages();
  ASSERT_TRUE(pages);
  // The pages stay mapped when the secret is gone.
  const auto is_there = [&](const std::string& part) {
    return std::search(pages->begin, pages->end, part.begin(), part.end()) != pages->end;
  };
  for (const char c : sentinel)
    secret->Append(static_cast<unsigned char>(c));
  for (const std::string& part : Parts(sentinel))
    EXPECT_TRUE(is_there(part)) << part;
  secret.reset();
  for (const std::string& part : Parts(sentinel))
    EXPECT_FALSE(is_there(part)) << part;
}

TEST(SecretTest, ClearEmptiesItsWholeMemory) {
  Secret secret;
  for (std::size_t i = 0; i < Secret::kCapacity; ++i)
    secret.Append('x');
  secret.Clear();
  // Equals() compares the whole memory.
  EXPECT_TRUE(secret.Equals(Secret()));
}

class CoreDumpBlockerTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(getrlimit(RLIMIT_CORE, &before_), 0);
    const rlimit some = {before_.rlim_max < 4096 ? before_.rlim_max : 4096, before_.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_CORE, &some), 0);
    soft_limit_ = some.rlim_cur;
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 1), 0);
  }
  void TearDown() override {
    setrlimit(RLIMIT_CORE, &before_);
    prctl(PR_SET_DUMPABLE, 1);
  }

  static rlim_t Limit() {
    rlimit limit = {};
    return getrlimit(RLIMIT_CORE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
  }

  rlimit before_ = {};
  rlim_t soft_limit_ = 0;
};

TEST_F(CoreDumpBlockerTest, LastsFromTheFirstToTheLast) {
  auto first = std::make_unique<CoreDumpBlocker>();
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
  EXPECT_EQ(Limit(), 0U);
  auto second = std::make_unique<CoreDumpBlocker>();
  first.reset();
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
  EXPECT_EQ(Limit(), 0U);
  second.reset();
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
  EXPECT_EQ(Limit(), soft_limit_);
}

TEST_F(CoreDumpBlockerTest, LeavesAProcessThatCannotBeDumped) {
  ASSERT_EQ(prctl(PR_SET_DUMPABLE, 0), 0);
  { const CoreDumpBlocker blocker; }
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
}

TEST_F(CoreDumpBlockerTest, LastsAsLongAsASecret) {
  auto secret = std::make_unique<Secret>();
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
  secret.reset();
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
}

}  // namespace
}  // namespace cardcert::cli
