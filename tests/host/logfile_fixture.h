// The fixture of the tests of Logfile: a log, a path for its file and a list for its messages.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "host/logfile.h"
#include "support/files.h"

class LogfileTest : public testing::Test {
 protected:
  // Returns the lines of the log file.
  std::vector<std::string> FileLines() const {
    std::vector<std::string> lines;
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);)
      lines.push_back(line);
    return lines;
  }

  // Makes the log append "LEVEL MESSAGE" to collected_.
  void CollectMessages() {
    log_.LogToFunction([this](const std::string& message, int level) {
      collected_.push_back(std::to_string(level) + " " + message);
    });
  }

  Logfile log_;
  support::TempFolder folder_;
  std::string path_ = folder_.File("log");
  std::vector<std::string> collected_;
};
