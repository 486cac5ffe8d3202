#include "cli/terminal/secret.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace cardcert::cli {

struct SecretMemory {
  bool in_use;
  bool too_long;
  unsigned char byte;
  std::size_t length;
  unsigned char bytes[Secret::kCapacity];
};

namespace {

// The smallest size of a page. On systems with larger ones the rest is not used.
constexpr std::size_t kPoolSize = 4096;
constexpr std::size_t kNumSecrets = kPoolSize / sizeof(SecretMemory);
static_assert(kNumSecrets >= 24, "the header promises room for 24 secrets");

// Returns the pool, zeroed at first; null if there is no memory. It is never released.
SecretMemory* MakePool() {
  void* const pool =
      mmap(nullptr, kPoolSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pool == MAP_FAILED)
    return nullptr;
  mlock(pool, kPoolSize);
  madvise(pool, kPoolSize, MADV_DONTDUMP);
  // Linux before 4.14 cannot do this; without the pages a forked process would crash at worst.
  if (madvise(pool, kPoolSize, MADV_WIPEONFORK) != 0)
    madvise(pool, kPoolSize, MADV_DONTFORK);
  return static_cast<SecretMemory*>(pool);
}

SecretMemory& TakeFromPool() {
  static SecretMemory* const pool = MakePool();
  for (std::size_t i = 0; pool != nullptr && i < kNumSecrets; ++i) {
    if (!pool[i].in_use) {
      pool[i].in_use = true;
      return pool[i];
    }
  }
  throw std::bad_alloc();
}

}  // namespace

Secret::Secret() : memory_(TakeFromPool()) {}

Secret::~Secret() {
  // The optimiser may drop a memset() of memory that is not read again, but not this.
  explicit_bzero(&memory_, sizeof memory_);
}

void Secret::Clear() {
  explicit_bzero(&memory_, sizeof memory_);
  memory_.in_use = true;
}

void Secret::Append(unsigned char byte) {
  if (memory_.length < kCapacity)
    memory_.bytes[memory_.length++] = byte;
  else
    memory_.too_long = true;
}

ssize_t Secret::ReadByte(int descriptor) {
  return read(descriptor, &memory_.byte, 1);
}

unsigned char Secret::byte() const {
  return memory_.byte;
}

void Secret::CopyTo(volatile unsigned char* to) const {
  for (std::size_t i = 0; i < memory_.length; ++i)
    to[i] = memory_.bytes[i];
}

bool Secret::Equals(const Secret& other) const {
  const volatile unsigned char* const ours = memory_.bytes;
  unsigned char difference = 0;
  for (std::size_t i = 0; i < kCapacity; ++i)
    difference = static_cast<unsigned char>(difference | (ours[i] ^ other.memory_.bytes[i]));
  return length() == other.length() && difference == 0;
}

bool Secret::BeginsWith(const char* text) const {
  std::size_t i = 0;
  while (text[i] != '\0' && i < length() && memory_.bytes[i] == static_cast<unsigned char>(text[i]))
    ++i;
  return text[i] == '\0';
}

std::size_t Secret::length() const {
  return memory_.length;
}

bool Secret::too_long() const {
  return memory_.too_long;
}

}  // namespace cardcert::cli
