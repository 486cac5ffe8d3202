#include "pkcs11/memory_scan.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <random>

Secret::Secret() {
  std::random_device random;
  for (std::size_t i = 0; i < kLength; ++i) {
    first_[i] = static_cast<unsigned char>(random());
    second_[i] = static_cast<unsigned char>(random());
  }
}

void Secret::WriteTo(unsigned char* buffer) const {
  // Volatile, so that no register holds more than one byte. Registers are saved on the stack.
  volatile unsigned char* const out = buffer;
  for (std::size_t i = 0; i < kLength; ++i)
    out[i] = first_[i] ^ second_[i];
}

std::string Secret::Complement() const {
  std::string complement;
  for (std::size_t i = 0; i < kLength; ++i)
    complement += static_cast<char>(~(first_[i] ^ second_[i]));
  return complement;
}

bool Secret::IsAt(const volatile unsigned char* bytes) const {
  for (std::size_t i = 0; i < kLength; ++i) {
    if (bytes[i] != (first_[i] ^ second_[i]))
      return false;
  }
  return true;
}

WritableMemory::WritableMemory() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    Region region;
    char permissions[5] = {};
    if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %4s", &region.begin, &region.end,
                    permissions) == 3 &&
        permissions[0] == 'r' && permissions[1] == 'w')
      regions_.push_back(region);
  }
}

std::size_t WritableMemory::Count(const Secret& secret) const {
  std::size_t count = 0;
  for (const Region& region : regions_) {
    for (std::uintptr_t at = region.begin; at + Secret::kLength <= region.end; ++at) {
      if (secret.IsAt(reinterpret_cast<const volatile unsigned char*>(at)))
        ++count;
    }
  }
  return count;
}
