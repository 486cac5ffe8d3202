#include "cli/command_line/parser.h"

#include <gtest/gtest.h>

namespace cardcert::cli {
namespace {

std::optional<Options> Parse(std::vector<const char*> words) {
  words.insert(words.begin(), "cardcert");
  words.insert(words.end(), {"--module", "m.so"});
  return ParseOptions(static_cast<int>(words.size()), words.data()).options;
}

TEST(OptionsTest, HasTheDefaultsThatHelpPromises) {
  const std::optional<Options> watch = Parse({"watch"});
  ASSERT_TRUE(watch);
  EXPECT_EQ(watch->watch.interval, 1.0);
  EXPECT_EQ(watch->watch.count, 0U);  // Without end.
  const std::optional<Options> sign = Parse({"sign", "10"});
  ASSERT_TRUE(sign);
  EXPECT_EQ(sign->sign.in, "-");
  EXPECT_EQ(sign->sign.out, "-");
  EXPECT_EQ(sign->sign.digest, "sha256");
  EXPECT_EQ(sign->sign.encoding, "raw");
  EXPECT_FALSE(sign->sign.batch);
}

TEST(OptionsTest, TakesOneFilterPerOption) {
  const std::optional<Options> two = Parse({"list", "--filter", "a||0", "--filter", "b||0"});
  ASSERT_TRUE(two);
  EXPECT_EQ(two->provider.filters, (std::vector<std::string>{"a||0", "b||0"}));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(Parse({"list", "--filter", "a||0", "b||0"}));
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace cardcert::cli
