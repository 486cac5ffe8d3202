#include "cli/command_line/parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/exit_status.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

TEST(HelpTest, MentionsEveryCommandAndOption) {
  EXPECT_THAT(CommandNames(), UnorderedElementsAre("list", "present", "watch", "sign", "help"));
  EXPECT_THAT(OptionNames("list"), Contains("--filter"));
  EXPECT_THAT(OptionNames("list"), Contains("-m"));
  for (const std::string& command : CommandNames()) {
    EXPECT_THAT(HelpText(""), HasSubstr("\n  " + command + " "));
    for (const std::string& option : OptionNames(command))
      EXPECT_THAT(HelpText(command), HasSubstr(option));
  }
}

TEST(HelpTest, ListsEveryExitStatus) {
  const std::string text = HelpText("");
  const std::string table = text.substr(text.find("\nExit status:\n"));
  for (int status = kExitSuccess; status <= kExitFinalTryRefused; ++status)
    EXPECT_THAT(table, HasSubstr("\n  " + std::to_string(status) + "  "));
}

TEST(HelpTest, FitsIn80Columns) {
  std::vector<std::string> texts = {HelpText("")};
  for (const std::string& command : CommandNames())
    texts.push_back(HelpText(command));
  for (const std::string& text : texts) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
      EXPECT_LE(DisplayWidth(line), 80U) << line;
  }
}

}  // namespace
}  // namespace cardcert::cli
