// The fixture for everything that runs the component on a scripted provider, whatever the host.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "pkcs11/pkcs11.h"
#include "scripted_provider/provider.h"

// Compares all that happened since the last EXPECT_TRACE (or Open()) with an indented raw string,
// line by line; a failure shows the difference.
#define EXPECT_TRACE(expected) \
  EXPECT_EQ(scripted::Unindented(expected), scripted::Trace::Instance().Take())

// The path of a provider library: "scripted", "copy", or one of the variants that fail.
inline std::string ProviderPath(const std::string& name) {
  return SCRIPTED_PROVIDER_FOLDER + name + ".so";
}

// Whether an allocation of an impossible size ends the program instead of throwing: clang leaves
// the refusal to the allocator, and AddressSanitizer's reports it as a fault of the program.
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

  // Loads the scripted provider; the trace begins after it.
  void Open(const std::string& name = "scripted") {
    ASSERT_EQ(module.Open(ProviderPath(name)), 0) << scripted::Trace::Instance().Take();
    scripted::Trace::Instance().Clear();
  }
  // Open(), and nothing has changed since.
  void OpenUnchanged() {
    Open();
    module.changed = false;
  }

  void ClearTrace() { scripted::Trace::Instance().Clear(); }

  void TearDown() override {
    module.Close();
    for (const std::string& violation : provider.Violations())
      ADD_FAILURE() << violation;
  }

  scripted::Provider& provider;
  PKCS11Module module;
};

// The pieces of each record's name, joined by "/".
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
