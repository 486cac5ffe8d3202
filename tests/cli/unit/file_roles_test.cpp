#include "cli/commands/file_roles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "support/files.h"

namespace cardcert::cli {
namespace {

using testing::HasSubstr;

constexpr FileRole kRoles[] = {FileRole::kModule, FileRole::kInput,          FileRole::kPin,
                               FileRole::kOutput, FileRole::kStandardOutput, FileRole::kLog};

// What may not be shared, as letters: "r" for a regular file, "m" for a missing one, "p" for a
// pipe.
struct Pair {
  FileRole first;
  FileRole second;
  const char* refused;
};

const Pair kPairs[] = {
    {FileRole::kModule, FileRole::kInput, ""},
    {FileRole::kModule, FileRole::kPin, "rp"},
    {FileRole::kModule, FileRole::kOutput, "rmp"},
    {FileRole::kModule, FileRole::kStandardOutput, "rp"},
    {FileRole::kModule, FileRole::kLog, "rmp"},
    {FileRole::kInput, FileRole::kPin, "rp"},
    {FileRole::kInput, FileRole::kOutput, "rm"},
    {FileRole::kInput, FileRole::kStandardOutput, "r"},
    {FileRole::kInput, FileRole::kLog, "rmp"},
    {FileRole::kPin, FileRole::kPin, "p"},
    {FileRole::kPin, FileRole::kOutput, "rm"},
    {FileRole::kPin, FileRole::kStandardOutput, "r"},
    {FileRole::kPin, FileRole::kLog, "rmp"},
    {FileRole::kOutput, FileRole::kLog, "rmp"},
    {FileRole::kStandardOutput, FileRole::kLog, "rp"},
};

class FileRolesTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_.Write("r", "x");
    folder_.Write("other", "x");
    ASSERT_EQ(mkfifo(folder_.File("p").c_str(), 0600), 0);
  }

  static FileIdentity Of(const std::string& path) {
    const std::optional<FileIdentity> identity = FileIdentity::OfPath(path);
    if (!identity)
      throw std::runtime_error("no identity of " + path);
    return *identity;
  }

  static std::optional<FileConflict> Compare(FileRole first, FileRole second,
                                             const std::string& first_path,
                                             const std::string& second_path) {
    return FindConflict(
        {{first, "--first", Of(first_path)}, {second, "--second", Of(second_path)}});
  }

  std::string File(const std::string& name) const { return folder_.File(name); }

  support::TempFolder folder_;
};

TEST_F(FileRolesTest, EachPairIsDecidedForEachKindOfFile) {
  for (const Pair& pair : kPairs) {
    for (const std::string kind : {"r", "m", "p"}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(pair.first) << " and "
                                      << static_cast<int>(pair.second) << " " << kind);
      const bool refused = std::string(pair.refused).find(kind) != std::string::npos;
      const auto conflict = Compare(pair.first, pair.second, File(kind), File("./" + kind));
      ASSERT_EQ(conflict.has_value(), refused);
      if (!conflict)
        continue;
      EXPECT_THAT(conflict->error, HasSubstr(std::string("--first and --second are the same ") +
                                             (kind == "p" ? "pipe: " : "file: ")));
      EXPECT_NE(conflict->hint, "");
      // The order of the command line does not matter.
      const auto reversed = Compare(pair.second, pair.first, File(kind), File(kind));
      EXPECT_TRUE(reversed.has_value());
    }
  }
}

TEST_F(FileRolesTest, ThePairsAreAllThatThereAre) {
  for (const FileRole first : kRoles) {
    for (const FileRole second : kRoles) {
      const bool possible = first < second
                                ? first != FileRole::kOutput || second != FileRole::kStandardOutput
                                : first == FileRole::kPin && second == FileRole::kPin;
      EXPECT_EQ(std::count_if(
                    std::begin(kPairs), std::end(kPairs),
                    [&](const Pair& pair) { return pair.first == first && pair.second == second; }),
                possible ? 1 : 0);
    }
  }
}

TEST_F(FileRolesTest, DifferentFilesDoNotConflict) {
  for (const Pair& pair : kPairs)
    EXPECT_FALSE(Compare(pair.first, pair.second, File("r"), File("other")));
}

TEST_F(FileRolesTest, NullDevicesAndTerminalsMayBeShared) {
  for (const Pair& pair : kPairs) {
    EXPECT_FALSE(Compare(pair.first, pair.second, "/dev/null", "/dev/null"));
    EXPECT_FALSE(Compare(pair.first, pair.second, "/dev/ptmx", "/dev/ptmx"));
  }
}

TEST_F(FileRolesTest, ALogNamedStandardOutputIsRefusedWhereverThatLeads) {
  EXPECT_TRUE(FindConflict({{FileRole::kStandardOutput, "standard output", Of("/dev/null"), true},
                            {FileRole::kLog, "--log-file", Of("/dev/null"), true}}));
  EXPECT_FALSE(FindConflict({{FileRole::kOutput, "--out", Of("/dev/null"), false},
                             {FileRole::kLog, "--log-file", Of("/dev/null"), true}}));
}

TEST_F(FileRolesTest, ComparesEachFileWithEachOther) {
  const std::vector<UsedFile> files = {{FileRole::kInput, "--in", Of(File("other"))},
                                       {FileRole::kPin, "--pin-file", Of(File("r"))},
                                       {FileRole::kPin, "--so-pin-file", Of(File("p"))},
                                       {FileRole::kPin, "--new-pin-file", Of(File("p"))}};
  const std::optional<FileConflict> conflict = FindConflict(files);
  ASSERT_TRUE(conflict);
  EXPECT_EQ(conflict->error,
            "--so-pin-file and --new-pin-file are the same pipe: only one PIN can be read from it");
}

}  // namespace
}  // namespace cardcert::cli
