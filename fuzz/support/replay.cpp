// Runs a fuzz target on every file in a folder, without libFuzzer. Fails if there is none.
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
    std::fprintf(stderr, "no inputs in %s%s%s\n", argv[1], error ? ": " : "",
                 error ? error.message().c_str() : "");
    return 1;
  }
  std::sort(paths.begin(), paths.end());
  for (const std::filesystem::path& path : paths) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)),
                                  std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) {
      std::fprintf(stderr, "cannot read %s\n", path.c_str());
      return 1;
    }
    std::printf("%s\n", path.filename().c_str());
    std::fflush(stdout);  // Shows the name even if the input aborts the program.
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("counted: %zu fuzz inputs replayed\n", paths.size());
  return 0;
}
