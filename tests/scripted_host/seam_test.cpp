// The seam between the component and its host program: three headers and nothing else. That the
// component compiles and links against another host is shown by the library this test is linked
// with; here is what the compiler cannot see.
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

// The host that the component was compiled with is the foreign one.
static_assert(std::is_same_v<decltype(logfile.Log("", 0)), int>);
static_assert(std::is_same_v<certificate, scripted_host::Certificate>);

const std::set<std::string> kHostHeaders = {"\"host/logfile.h\"", "\"host/kvutils.h\"",
                                            "\"host/certificate.h\""};

bool IsAllowed(const std::string& name) {
  static const std::regex of_the_component("\"pkcs11/([a-z0-9_]+\\.h)\"");
  static const std::regex of_the_platform("<[a-z0-9_]+(\\.h)?>");
  std::smatch parts;
  if (std::regex_match(name, parts, of_the_component))
    return fs::exists(fs::path(COMPONENT_FOLDER) / parts[1].str());
  return kHostHeaders.count(name) == 1 || name == "<p11-kit/pkcs11.h>" ||
         std::regex_match(name, of_the_platform);
}

// Every include of the file, as written with its quotes or brackets.
std::vector<std::string> Includes(const fs::path& path) {
  static const std::regex include("\\s*#\\s*include\\s*(.*?)\\s*(//.*)?");
  std::vector<std::string> names;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::smatch parts;
    if (std::regex_match(line, parts, include))
      names.push_back(parts[1]);
  }
  return names;
}

TEST(Seam, TheComponentIncludesOnlyItselfThePlatformAndThreeHostHeaders) {
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
  EXPECT_EQ(host_headers, kHostHeaders) << "includes are looked for in the wrong way";
}

TEST(Seam, WhatIsNotAllowedIsNoticed) {
  for (const char* name :
       {"\"host/x509/der.h\"", "\"../host/certificate.h\"", "\"certificate.h\"", "<openssl/evp.h>",
        "\"pkcs11/../host/logfile.h\"", "\"pkcs11/no_such_file.h\"", "HEADER"})
    EXPECT_FALSE(IsAllowed(name)) << name;
}

TEST(Seam, AModuleLivesWithinAForeignHost) {
  PKCS11Module module;
  EXPECT_FALSE(module.HasChanged());
  EXPECT_EQ(module.name_components.size(), 1u);
}

}  // namespace
