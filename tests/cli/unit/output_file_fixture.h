// What the tests of output files share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "cli/output/output_file.h"
#include "cli/terminal/console.h"
#include "support/files.h"

namespace cardcert::cli {

inline bool Prepares(const std::string& path) {
  return OutputFile::Prepare(path).has_value();
}

inline bool WriteTo(const std::string& path, const std::string& data) {
  std::optional<OutputFile> output = OutputFile::Prepare(path);
  return output && output->Write(data);
}

inline struct stat InfoOf(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
  return info;
}

inline mode_t Mode(const std::string& path) {
  return InfoOf(path).st_mode & 07777;
}

class OutputFileFixture : public testing::Test {
 protected:
  std::string File(const std::string& name) const { return folder_.File(name); }

  // All names in the test's folder and below, such as temporary ones that were left.
  std::size_t NumFiles() const {
    const std::filesystem::recursive_directory_iterator files(folder_.path());
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }

  // Runs `run`, which must return false, and returns what was written to standard error.
  template <typename Run>
  static std::string ErrorOf(const Run& run) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(run());
    return testing::internal::GetCapturedStderr();
  }

  // What the program prints for this error and its hint.
  static std::string Printed(const std::string& error, const std::string& hint = "") {
    testing::internal::CaptureStderr();
    PrintError(error);
    if (!hint.empty())
      PrintHint(hint);
    return testing::internal::GetCapturedStderr();
  }

  support::TempFolder folder_;
};

}  // namespace cardcert::cli
