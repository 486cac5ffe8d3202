// A folder that is gone after the test.
#pragma once

#include <string>

class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // Makes the file and returns its path.
  std::string Write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

// The file's content; empty when there is none.
std::string ReadWhole(const std::string& path);
bool Exists(const std::string& path);
