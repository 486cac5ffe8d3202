#include "cli/pins/pin_words.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace cardcert::cli {
namespace {

TEST(PinWordsTest, NamesEveryTypeAndError) {
  std::set<std::string> texts;
  std::set<std::string> names;
  for (const auto type : {PIN_TYPE_USER, PIN_TYPE_SO, PIN_TYPE_UNLOCK, PIN_TYPE_NEW_USER}) {
    names.insert(PinName(type));
    for (const auto error : {PIN_ERROR_INCORRECT, PIN_ERROR_INVALID, PIN_ERROR_LOCKED})
      texts.insert(PinErrorText(type, error));
  }
  EXPECT_EQ(names.size(), 4U);
  EXPECT_EQ(texts.size(), 12U);
}

}  // namespace
}  // namespace cardcert::cli
