#include "cli/pins/pin_words.h"

#include <gtest/gtest.h>

#include <string>

namespace cardcert::cli {
namespace {

TEST(PinWordsTest, NamesEveryType) {
  EXPECT_STREQ(PinName(PIN_TYPE_USER), "PIN");
  EXPECT_STREQ(PinName(PIN_TYPE_SO), "SO PIN (PUK)");
  EXPECT_STREQ(PinName(PIN_TYPE_UNLOCK), "unlocking of the PIN");
  EXPECT_STREQ(PinName(PIN_TYPE_NEW_USER), "new PIN");
}

struct Text {
  pkcs11_pin_type type;
  pkcs11_pin_error error;
  const char* text;
};

TEST(PinWordsTest, ExplainsEveryErrorOfEveryType) {
  constexpr Text kTexts[] = {
      {PIN_TYPE_USER, PIN_ERROR_INCORRECT, "the PIN is wrong"},
      {PIN_TYPE_USER, PIN_ERROR_INVALID, "the token does not accept a PIN of this length or form"},
      {PIN_TYPE_USER, PIN_ERROR_LOCKED, "the PIN is locked"},
      {PIN_TYPE_SO, PIN_ERROR_INCORRECT, "the SO PIN (PUK) is wrong"},
      {PIN_TYPE_SO, PIN_ERROR_INVALID,
       "the token does not accept an SO PIN (PUK) of this length or form"},
      {PIN_TYPE_SO, PIN_ERROR_LOCKED,
       "the SO PIN (PUK) is locked; only the issuer of the token can help"},
      {PIN_TYPE_UNLOCK, PIN_ERROR_INCORRECT,
       "the PIN cannot be unlocked: an SO PIN (PUK) is wrong"},
      {PIN_TYPE_UNLOCK, PIN_ERROR_INVALID,
       "the PIN cannot be unlocked: a PIN does not have the right length or form"},
      {PIN_TYPE_UNLOCK, PIN_ERROR_LOCKED, "the PIN cannot be unlocked: the SO PIN (PUK) is locked"},
      {PIN_TYPE_NEW_USER, PIN_ERROR_INCORRECT, "the new PIN was refused"},
      {PIN_TYPE_NEW_USER, PIN_ERROR_INVALID,
       "the token does not accept a new PIN of this length or form"},
      {PIN_TYPE_NEW_USER, PIN_ERROR_LOCKED, "the new PIN cannot be set: it is locked"},
  };
  for (const Text& expected : kTexts)
    EXPECT_STREQ(PinErrorText(expected.type, expected.error), expected.text);
}

}  // namespace
}  // namespace cardcert::cli
