#include "cli/pins/pin_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

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
    chmod(source.file->c_str(), mode_);
    testing::internal::CaptureStderr();
    const std::unique_ptr<Secret> pin = ReadPin(source, "--pin");
    err_ = testing::internal::GetCapturedStderr();
    return pin ? Text(*pin) : "none";
  }

  TempFolder folder_;
  mode_t mode_ = 0600;
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

TEST_F(PinFileTest, WarnsIfOtherUsersCanReadOrChangeIt) {
  for (const mode_t mode : {0600U, 0400U, 0700U}) {
    mode_ = mode;
    EXPECT_EQ(Read("1234"), "1234");
    EXPECT_EQ(err_, "");
  }
  for (const mode_t mode : {0640U, 0604U, 0644U, 0666U}) {
    mode_ = mode;
    EXPECT_EQ(Read("1234"), "1234");
    EXPECT_EQ(err_,
              "cardcert: warning: the file of --pin-file can be read by other users; the"
              " permissions 0600 protect it\n");
  }
  for (const mode_t mode : {0620U, 0602U, 0610U, 0601U}) {
    mode_ = mode;
    EXPECT_EQ(Read("1234"), "1234");
    EXPECT_THAT(err_, HasSubstr("can be changed by other users"));
  }
}

TEST_F(PinFileTest, WarnsIfAnotherUserOwnsIt) {
  if (geteuid() != 0)
    GTEST_SKIP() << "only root can give a file to another user";
  PinSource source;
  source.file = folder_.Write("pin", "1234");
  ASSERT_EQ(chmod(source.file->c_str(), 0600), 0);
  ASSERT_EQ(chown(source.file->c_str(), 65534, 0), 0);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(ReadPin(source, "--so-pin"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cardcert: warning: the file of --so-pin-file belongs to another user, who can read and"
            " change it\n");
}

TEST_F(PinFileTest, DoesNotWarnAboutAPipe) {
  int ends[2] = {};
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "1234\n", 5), 5);
  close(ends[1]);
  PinSource source;
  source.file = "/dev/fd/" + std::to_string(ends[0]);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(ReadPin(source, "--pin"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  close(ends[0]);
}

TEST(PinVariableTest, EveryEntryOfTheNameIsCleared) {
  // A parent can pass several entries of one name; getenv() finds the first.
  char first[] = "TWICE=111111";
  char longer_name[] = "TWICE_MORE=222222";
  char second[] = "TWICE=333333";
  char name_only[] = "TWICE";
  char* entries[] = {first, longer_name, second, name_only, nullptr};
  char** const before = std::exchange(environ, entries);
  PinSource source;
  source.variable = "env:TWICE";
  ClearPinVariable(source);
  const bool is_set = getenv("TWICE") != nullptr;
  const std::string other = getenv("TWICE_MORE");
  environ = before;
  EXPECT_FALSE(is_set);
  EXPECT_EQ(other, "222222");
  for (const char* const entry : {first, second})
    EXPECT_EQ(std::string(entry, sizeof first), std::string("TWICE=") + std::string(7, '\0'));
  EXPECT_STREQ(name_only, "TWICE");
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

}  // namespace
}  // namespace cardcert::cli
