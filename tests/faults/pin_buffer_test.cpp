// PinBuffer clears all of its bytes.
#include "pkcs11/detail/pin_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>

namespace {

using cardcert::detail::PinBuffer;

TEST(PinBuffer, ClearsEveryByteInDestructor) {
  alignas(PinBuffer) unsigned char room[sizeof(PinBuffer)];
  PinBuffer* const pin = new (room) PinBuffer;
  const std::ptrdiff_t offset = pin->bytes - room;
  std::memset(pin->bytes, 'P', sizeof pin->bytes);
  pin->~PinBuffer();
  const std::string left(room + offset, room + offset + sizeof pin->bytes);
  EXPECT_EQ(left, std::string(128, '\0'));
}

TEST(PinBuffer, ClearsEveryByteInClear) {
  PinBuffer pin;
  std::memset(pin.bytes, 'P', sizeof pin.bytes);
  pin.Clear();
  EXPECT_THAT(pin.bytes, testing::Each(0));
}

}  // namespace
