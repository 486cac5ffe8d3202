#include "pkcs11/detail/text_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace cardcert::detail {
namespace {

TEST(TextBufferTest, EndsTextAtTerminator) {
  TextBuffer<8> buffer;
  EXPECT_EQ(buffer.text(), "");
  std::copy_n("text", 5, buffer.data());
  EXPECT_EQ(buffer.text(), "text");
}

TEST(TextBufferTest, ReturnsFullBufferWithoutTerminator) {
  TextBuffer<8> buffer;
  std::copy_n("12345678", buffer.size(), buffer.data());
  EXPECT_EQ(buffer.text(), "12345678");
}

}  // namespace
}  // namespace cardcert::detail
