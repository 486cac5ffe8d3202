#include "support/files.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace support {

TempFolder::TempFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "cardcert-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr)
    throw std::runtime_error("cannot make a temporary folder");
  path_ = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::Write(const std::string& name, const std::string& content) const {
  std::ofstream(File(name), std::ios::binary) << content;
  return File(name);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool Exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

}  // namespace support
