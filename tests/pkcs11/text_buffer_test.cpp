// Buffers that the certificate library writes to.
#include "pkcs11/detail/text_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

namespace {

using Buffer = cardcert::detail::TextBuffer<8>;

TEST(TextBuffer, StartsEmptyWhateverWasInMemory) {
  alignas(Buffer) unsigned char memory[sizeof(Buffer)];
  std::memset(memory, 'x', sizeof memory);
  const Buffer* const buffer = new (memory) Buffer;
  EXPECT_EQ(buffer->text(), "");
}

TEST(TextBuffer, TextEndsAtItsTerminator) {
  Buffer buffer;
  std::memcpy(buffer.data(), "ab\0cdefg", buffer.size());
  EXPECT_EQ(buffer.text(), "ab");
}

TEST(TextBuffer, UnterminatedTextEndsAtTheEndOfTheBuffer) {
  struct {
    Buffer buffer;
    char next[8] = {'o', 't', 'h', 'e', 'r', 's', '!', '\0'};
  } memory;
  std::memset(memory.buffer.data(), 'x', memory.buffer.size());
  EXPECT_EQ(memory.buffer.text(), "xxxxxxxx");
}

}  // namespace
