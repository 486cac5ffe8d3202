#include "cli/help.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/exit_status.h"
#include "cli/options.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

using testing::Contains;
using testing::HasSubstr;

TEST(HelpTest, MentionsEveryCommandAndOption) {
  const std::vector<std::string> words = KnownWords();
  EXPECT_THAT(words, Contains("--filter"));
  EXPECT_THAT(words, Contains("sign"));
  for (const std::string& word : words)
    EXPECT_THAT(HelpText(), HasSubstr(word));
}

TEST(HelpTest, ListsEveryExitStatus) {
  const std::string text = HelpText();
  const std::string table = text.substr(text.find("\nExit status:\n"));
  for (int status = kExitSuccess; status <= kExitFinalTryRefused; ++status)
    EXPECT_THAT(table, HasSubstr("\n  " + std::to_string(status) + "  "));
}

TEST(HelpTest, FitsIn80Columns) {
  std::istringstream lines(HelpText());
  for (std::string line; std::getline(lines, line);)
    EXPECT_LE(DisplayWidth(line), 80U) << line;
}

}  // namespace
}  // namespace cardcert::cli
