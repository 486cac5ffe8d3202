// Files and temporary folders.
#pragma once

#include <string>

namespace support {

// A temporary folder that is removed with its contents by the destructor. The constructor throws
// std::runtime_error if the folder cannot be made.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  // Returns the path of a file of this name in the folder.
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // Writes a file in the folder and returns its path.
  std::string Write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

// Returns the contents of a file, or an empty string if it cannot be read.
std::string ReadFile(const std::string& path);

// Returns true if the path exists. Does not follow a symbolic link at its end.
bool Exists(const std::string& path);

}  // namespace support
