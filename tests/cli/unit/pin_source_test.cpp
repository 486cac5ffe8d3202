#include "cli/pins/pin_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "support/files.h"

namespace cardcert::cli {
namespace {

using support::TempFolder;

using testing::HasSubstr;
using testing::Not;

std::string Text(const Secret& secret) {
  unsigned char bytes[Secret::kCapacity] = {};
  secret.CopyTo(bytes);
  return std::string(bytes, bytes + secret.length());
}

class PinFileTest : public testing::Test {
 protected:
  // Reads a PIN from a file with this content. Returns "none" on failure; the message is in err_.
  std::string Read(const std::string& content) {
    PinSource source;
    source.file = folder_.Write("pin", content);
    testing::internal::CaptureStderr();
    const std::unique_ptr<Secret> pin = ReadPin(source, "--pin");
    err_ = testing::internal::GetCapturedStderr();
    return pin ? Text(*pin) : "none";
  }

  TempFolder folder_;
  std::string err_;
};

TEST_F(PinFileTest, ReadsOneLineWithOrWithoutLineEnd) {
  EXPECT_EQ(Read("1234\n"), "1234");
  EXPECT_EQ(Read("1234"), "1234");
  EXPECT_EQ(Read("1234\r\n"), "1234");
  EXPECT_EQ(Read(" 12 34 \n"), " 12 34 ");
  EXPECT_EQ(Read("12\r34\r\r\n"), "12\r34\r");
  EXPECT_EQ(Read("1234\r"), "1234\r");
  EXPECT_EQ(Read(std::string(128, 'x') + "\n"), std::string(128, 'x'));
}

TEST_F(PinFileTest, RefusesEmptyLongAndMultipleLines) {
  EXPECT_EQ(Read(""), "none");
  EXPECT_THAT(err_, HasSubstr("it is empty"));
  EXPECT_EQ(Read("\n"), "none");
  EXPECT_EQ(Read("1234\n5678\n"), "none");
  EXPECT_THAT(err_, HasSubstr("more than one line"));
  EXPECT_EQ(Read("1234\n\n"), "none");
  EXPECT_EQ(Read(std::string(129, 'x')), "none");
  EXPECT_THAT(err_, HasSubstr("longer than 128 bytes"));
  EXPECT_THAT(err_, Not(HasSubstr("xxxx")));
}

TEST_F(PinFileTest, RefusesByteOrderMarkAndZeroBytes) {
  EXPECT_EQ(Read("\xef\xbb\xbf"
                 "1234\n"),
            "none");
  EXPECT_THAT(err_, HasSubstr("byte order mark"));
  EXPECT_EQ(Read(std::string("1\0002\0003\0004\0", 8)), "none");
  EXPECT_THAT(err_, HasSubstr("it contains a zero byte"));
  EXPECT_EQ(Read("\xef\xbb"), "\xef\xbb");
}

TEST_F(PinFileTest, StopsReadingAfterTheMaximumLength) {
  int ends[2] = {};
  ASSERT_EQ(pipe(ends), 0);  // Which stays open: to its end nobody could read.
  const std::string many(200, '1');
  ASSERT_EQ(write(ends[1], many.data(), many.size()), 200);
  PinSource source;
  source.file = "/dev/fd/" + std::to_string(ends[0]);
  EXPECT_EQ(ReadPin(source, "--pin"), nullptr);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(PinFileTest, DoesNotNameAMissingFileOrVariable) {
  PinSource source;
  source.file = "246810";
  testing::internal::CaptureStderr();
  EXPECT_EQ(ReadPin(source, "--so-pin"), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cardcert: error: cannot read the PIN of --so-pin-file: No such file or directory\n");
  source.file.reset();
  source.variable = "env:246810";
  testing::internal::CaptureStderr();
  EXPECT_EQ(ReadPin(source, "--pin"), nullptr);
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "cardcert: error: cannot read the PIN of --pin: there is no such environment variable\n");
}

TEST_F(PinFileTest, FailsIfFileCannotBeRead) {
  PinSource source;
  source.file = folder_.path();
  EXPECT_EQ(ReadPin(source, "--pin"), nullptr);
  source.file = folder_.File("missing");
  EXPECT_EQ(ReadPin(source, "--pin"), nullptr);
}

TEST(PinVariableTest, IsReadAndThenCleared) {
  setenv("CARDCERT_TEST_PIN", "987654", 1);
  PinSource source;
  source.variable = "env:CARDCERT_TEST_PIN";
  const char* const value = getenv("CARDCERT_TEST_PIN");
  const std::unique_ptr<Secret> pin = ReadPin(source, "--pin");
  ASSERT_TRUE(pin);
  EXPECT_EQ(Text(*pin), "987654");
  ClearPinVariable(source);
  EXPECT_EQ(getenv("CARDCERT_TEST_PIN"), nullptr);
  EXPECT_EQ(std::string(value, 6), std::string(6, '\0'));  // Where it was.
}

TEST(PinVariableTest, RefusesUnsetAndEmptyVariables) {
  PinSource source;
  source.variable = "env:CARDCERT_TEST_NO_SUCH_PIN";
  EXPECT_EQ(ReadPin(source, "--pin"), nullptr);
  setenv("CARDCERT_TEST_PIN", "", 1);
  source.variable = "env:CARDCERT_TEST_PIN";
  EXPECT_EQ(ReadPin(source, "--pin"), nullptr);
}

TEST(PinVariableTest, DoesNotEchoAPinGivenInsteadOfAName) {
  PinSource source;
  source.variable = "246810";
  testing::internal::CaptureStderr();
  EXPECT_EQ(ReadPin(source, "--pin"), nullptr);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_THAT(err, HasSubstr("--pin takes env:NAME"));
  EXPECT_THAT(err, Not(HasSubstr("246810")));
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
  alignas(Secret) unsigned char place[sizeof(Secret)];
  const auto is_there = [&](const std::string& part) {
    return std::search(std::begin(place), std::end(place), part.begin(), part.end()) !=
           std::end(place);
  };
  auto* const secret = new (place) Secret;
  for (const char c : sentinel)
    secret->Append(static_cast<unsigned char>(c));
  for (const std::string& part : Parts(sentinel))
    EXPECT_TRUE(is_there(part)) << part;
  secret->~Secret();
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

}  // namespace
}  // namespace cardcert::cli
