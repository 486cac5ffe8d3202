// The component needs nothing from its host program but three headers. The library that this test
// is linked with shows that the component compiles and links with other implementations of them.
// These tests check what the compiler does not see.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <type_traits>

#include "host/certificate.h"
#include "host/logfile.h"
#include "pkcs11/pkcs11.h"

namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

// The component was compiled with the host services of the scripted host.
static_assert(std::is_same_v<decltype(logfile.Log("", 0)), int>);
static_assert(std::is_same_v<certificate, scripted_host::Certificate>);

const std::set<std::string> kHostHeaders = {"\"host/logfile.h\"", "\"host/kvutils.h\"",
                                            "\"host/certificate.h\""};

// The standard library, the types of PKCS#11 and the loader, but no files, threads or clock. A new
// header here means that the component does something new.
const std::set<std::string> kPlatformHeaders = {
    "<algorithm>",        "<climits>", "<cstdint>", "<cstdio>",   "<cstdlib>",
    "<cstring>",          "<list>",    "<memory>",  "<optional>", "<string>",
    "<p11-kit/pkcs11.h>", "<utility>", "<dlfcn.h>"};

bool IsAllowed(const std::string& name) {
  static const std::regex of_the_component("\"pkcs11/((?:detail/)?[a-z0-9_]+\\.h)\"");
  std::smatch parts;
  if (std::regex_match(name, parts, of_the_component))
    return fs::exists(fs::path(COMPONENT_FOLDER) / parts[1].str());
  return kHostHeaders.count(name) == 1 || kPlatformHeaders.count(name) == 1;
}

std::vector<std::string> Lines(const fs::path& path) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);)
    lines.push_back(line);
  return lines;
}

// Returns the includes of the file with their quotes or brackets.
std::vector<std::string> Includes(const fs::path& path) {
  static const std::regex include("\\s*#\\s*include\\s*(.*?)\\s*(//.*)?");
  std::vector<std::string> names;
  for (const std::string& line : Lines(path)) {
    std::smatch parts;
    if (std::regex_match(line, parts, include))
      names.push_back(parts[1]);
  }
  return names;
}

// Returns true if the line reads the environment or opens a file. Some allowed headers declare
// functions for that.
bool AccessesFileOrEnvironment(const std::string& line) {
  static const std::regex names("getenv|\\benviron\\b|\\bf?open(dir|at)?\\(");
  return std::regex_search(line, names);
}

TEST(HostIndependence, IncludesOnlyAllowedHeaders) {
  std::vector<std::string> stray;
  std::set<std::string> host_headers;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(COMPONENT_FOLDER)) {
    for (const std::string& name : Includes(entry.path())) {
      if (!IsAllowed(name))
        stray.push_back(entry.path().filename().string() + ": " + name);
      if (kHostHeaders.count(name) == 1)
        host_headers.insert(name);
    }
  }
  EXPECT_THAT(stray, IsEmpty());
  EXPECT_EQ(host_headers, kHostHeaders) << "Includes() must find all three";
}

TEST(HostIndependence, DetectsHeadersThatAreNotAllowed) {
  for (const char* name :
       {"\"host/x509/der.h\"", "\"../host/certificate.h\"", "\"certificate.h\"", "<openssl/evp.h>",
        "\"pkcs11/../host/logfile.h\"", "\"pkcs11/no_such_file.h\"", "HEADER", "<thread>",
        "<fstream>", "<unistd.h>"})
    EXPECT_FALSE(IsAllowed(name)) << name;
}

// The component is configured only by the calls of its host.
TEST(HostIndependence, AccessesNoFileOrEnvironment) {
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(COMPONENT_FOLDER)) {
    for (const std::string& line : Lines(entry.path()))
      EXPECT_FALSE(AccessesFileOrEnvironment(line)) << entry.path().filename() << ": " << line;
  }
}

TEST(HostIndependence, DetectsFileAndEnvironmentAccess) {
  for (const char* line :
       {"std::getenv(\"HOME\")", "  const char* text = getenv(name);", "secure_getenv(name)",
        "extern char** environ;", "std::fopen(path, \"r\")", "return open(path, O_RDONLY);"})
    EXPECT_TRUE(AccessesFileOrEnvironment(line)) << line;
  for (const char* line : {"dlopen(path, RTLD_LAZY)", "module.Open(path)", "open_ = rv == CKR_OK;"})
    EXPECT_FALSE(AccessesFileOrEnvironment(line)) << line;
}

TEST(HostIndependence, ModuleRunsWithForeignHost) {
  PKCS11Module module;
  EXPECT_FALSE(module.HasChanged());
  EXPECT_EQ(module.name_components.size(), 1u);
}

}  // namespace
