// Runs a fuzz target over every file of a folder, as an ordinary test.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzzing.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  std::vector<std::filesystem::path> paths;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) {
    if (entry.is_regular_file())
      paths.push_back(entry.path());
  }
  if (paths.empty()) {
    std::fprintf(stderr, "%s holds no input, so that nothing would be tested\n", argv[1]);
    return 1;
  }
  std::sort(paths.begin(), paths.end());
  for (const std::filesystem::path& path : paths) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)),
                                  std::istreambuf_iterator<char>());
    if (file.bad()) {
      std::fprintf(stderr, "%s cannot be read\n", path.c_str());
      return 1;
    }
    std::printf("%s\n", path.filename().c_str());
    std::fflush(stdout);  // So that the name of an input that aborts is seen.
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("%zu inputs\n", paths.size());
  return 0;
}
