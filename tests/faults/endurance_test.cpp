// Many rounds of operations, after which memory, file descriptors and threads are no more than
// before. CARDCERT_ENDURANCE_ROUNDS sets the number of rounds; the default is 500.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "pkcs11/pkcs11.h"
#include "scripted_provider/provider.h"
#include "support/der_writer.h"

namespace {

int Rounds() {
  const char* const text = std::getenv("CARDCERT_ENDURANCE_ROUNDS");
  return text != nullptr ? std::atoi(text) : 500;
}

std::ptrdiff_t Entries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

struct Resources {
  std::size_t bytes;  // On the heap. Always 0 under AddressSanitizer, which has its own heap.
  std::ptrdiff_t descriptors;
  std::ptrdiff_t threads;

  static Resources Now() {
    scripted::Provider::Instance().Reset();
    scripted::Trace::Instance().Clear();
    return {mallinfo2().uordblks, Entries("/proc/self/fd"), Entries("/proc/self/task")};
  }
};

// The heap may vary by some bytes. A leak in each round would take at least 16 bytes a round.
void ExpectSame(const Resources& before, const Resources& after, int rounds) {
  EXPECT_LT(after.bytes, before.bytes + static_cast<std::size_t>(rounds) * 8)
      << "bytes of the heap";
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_EQ(after.threads, before.threads);
  std::printf("%d rounds: heap %zu -> %zu bytes, %td descriptors, %td threads\n", rounds,
              before.bytes, after.bytes, after.descriptors, after.threads);
}

bool Ask(pkcs11_pin_type, unsigned char* buffer, unsigned long* length, void*) {
  *length = 4;
  std::memcpy(buffer, "1234", 4);
  return true;
}

void AddTokens() {
  static const auto key = support::RsaKey::Generate(1024);
  static const std::string der = der::Certificate().Serial("\x01").KeyUsage(128).Ca(false).Der();
  scripted::Provider& provider = scripted::Provider::Instance();
  provider.Reset();
  scripted::Trace::Instance().Clear();
  provider.Slot(1).Token("Alice (PIN1)").UserPin("1234").Certificate(der, "A").PrivateKey("A", key);
  provider.Slot(2).Token("Bob").Certificate(der, "B");
}

const char kProvider[] = SCRIPTED_PROVIDER_FOLDER "scripted.so";

void OpenListSignClose(PKCS11Module& module) {
  AddTokens();
  ASSERT_EQ(module.Open(kProvider), 0);
  ASSERT_TRUE(module.HasChanged());
  ASSERT_EQ(module.GetCertificates().size(), 2u);
  unsigned char signature[128];
  unsigned long length = sizeof signature;
  ASSERT_TRUE(module.Sign("01", reinterpret_cast<const unsigned char*>("data"), 4, signature,
                          &length, Ask, nullptr, nullptr));
  module.Close();
}

TEST(Endurance, RoundsLeakNothing) {
  const int rounds = Rounds();
  PKCS11Module module;
  module.AddFilter("A|commonName=Test CA|128");
  for (int i = 0; i < 50; ++i)  // Warm up: allocate what is kept for good.
    OpenListSignClose(module);
  const Resources before = Resources::Now();
  for (int i = 0; i < rounds; ++i)
    ASSERT_NO_FATAL_FAILURE(OpenListSignClose(module));
  ExpectSame(before, Resources::Now(), rounds);
}

// Polls once per second for an hour, with an event and a listing every minute.
TEST(Endurance, HourOfPollingLeaksNothing) {
  AddTokens();
  PKCS11Module module;
  const auto hour = [&module] {
    AddTokens();
    ASSERT_EQ(module.Open(kProvider), 0);
    int changes = 0;
    for (int second = 0; second < 3600; ++second) {
      if (second % 60 == 59)
        scripted::Provider::Instance().AddSlotEvent(1);
      if (module.HasChanged()) {
        ASSERT_EQ(module.GetCertificates().size(), 2u);
        ++changes;
      }
    }
    ASSERT_EQ(changes, 61);  // Including the one after Open().
    module.Close();
  };
  ASSERT_NO_FATAL_FAILURE(hour());
  const Resources before = Resources::Now();
  ASSERT_NO_FATAL_FAILURE(hour());
  ExpectSame(before, Resources::Now(), 3600);
}

}  // namespace
