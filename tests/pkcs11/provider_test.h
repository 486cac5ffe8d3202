// The fixture of all tests that run the component on the scripted provider, with either host.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <list>
#include <string>
#include <vector>

#include "pkcs11/pkcs11.h"
#include "scripted_provider/provider.h"

// Compares everything that happened since the last EXPECT_TRACE (or Open()) with the lines of its
// arguments; a failure shows the difference. An argument is one line or more: text, an indented raw
// string, or what the functions in expected.h return.
#define EXPECT_TRACE(...) \
  EXPECT_EQ(scripted::Unindented(JoinParts({__VA_ARGS__})), scripted::Trace::Instance().Take())

inline std::string JoinParts(std::initializer_list<std::string> parts) {
  std::string lines;
  for (const std::string& part : parts)
    lines += part + '\n';  // Unindented() removes empty lines.
  return lines;
}

// The path of a provider library: "scripted", "copy", or one of those that cannot be loaded.
inline std::string ProviderPath(const std::string& name) {
  return SCRIPTED_PROVIDER_FOLDER + name + ".so";
}

// True if an allocation of an impossible size ends the program instead of throwing. With clang the
// allocator has to refuse it, and AddressSanitizer's allocator reports that as an error.
#if defined(__clang__) && defined(__has_feature)
#if __has_feature(address_sanitizer)
#define IMPOSSIBLE_ALLOCATIONS_ABORT 1
#endif
#endif
#ifdef IMPOSSIBLE_ALLOCATIONS_ABORT
inline constexpr bool kImpossibleAllocationsAbort = true;
#else
inline constexpr bool kImpossibleAllocationsAbort = false;
#endif

class ProviderTest : public testing::Test {
 protected:
  ProviderTest() : provider(scripted::Provider::Instance()) {
    provider.Reset();
    scripted::Trace::Instance().Clear();
    scripted::Trace::Instance().OmitFolder(SCRIPTED_PROVIDER_FOLDER);
  }

  // Loads a provider; the trace begins after it.
  void Open(const std::string& name = "scripted") {
    ASSERT_EQ(module.Open(ProviderPath(name)), 0) << scripted::Trace::Instance().Take();
    scripted::Trace::Instance().Clear();
  }
  // The same, and clears the change flag.
  void OpenUnchanged() {
    Open();
    module.changed = false;
  }

  void ClearTrace() { scripted::Trace::Instance().Clear(); }

  // Ends one part of a test: closes the module, checks that the component used the provider
  // correctly, and removes all slots for the next part.
  void StartOver() {
    module.Close();
    for (const std::string& violation : provider.Violations())
      ADD_FAILURE() << violation;
    provider.Reset();
    ClearTrace();
  }

  void TearDown() override { StartOver(); }

  scripted::Provider& provider;
  PKCS11Module module;
};

// The name of each record, its pieces joined by "/".
inline std::vector<std::string> Names(const std::list<pkcs11_certificate>& records) {
  std::vector<std::string> names;
  for (const pkcs11_certificate& record : records) {
    std::string& name = names.emplace_back();
    for (const std::string& piece : record.presentable_name)
      name += (&piece == &record.presentable_name.front() ? "" : "/") + piece;
  }
  return names;
}

inline std::vector<std::string> Serials(const std::list<pkcs11_certificate>& records) {
  std::vector<std::string> serials;
  for (const pkcs11_certificate& record : records)
    serials.push_back(record.serial);
  return serials;
}
