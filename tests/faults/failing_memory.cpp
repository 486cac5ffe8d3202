#include "faults/failing_memory.h"

#include <new>
#include <set>

#include "host/certificate.h"

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void __real_free(void* memory);
void __wrap_free(void* memory);
// The mangled names of cert_alloc() and cert_free(certificate*).
certificate* __real__Z10cert_allocv();
certificate* __wrap__Z10cert_allocv();
void __real__Z9cert_freeP11certificate(certificate* cert);
void __wrap__Z9cert_freeP11certificate(certificate* cert);
}

namespace {

int allocations_left = 0;  // Until one fails; 0 means that none fails.
bool has_failed = false;
int uncounted = 0;

bool Fails() {
  if (uncounted > 0 || allocations_left == 0 || --allocations_left > 0)
    return false;
  has_failed = true;
  return true;
}

// An allocation of 0 bytes must return a pointer, too.
void* Allocate(std::size_t size) {
  return Fails() ? nullptr : __real_malloc(size > 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr)
    throw std::bad_alloc();
  return memory;
}

std::set<certificate*>& Certificates() {
  static std::set<certificate*> certificates;
  return certificates;
}

}  // namespace

namespace failing_memory {

void FailAt(int nth) {
  allocations_left = nth;
  has_failed = false;
}

bool Stop() {
  allocations_left = 0;
  return has_failed;
}

Uncounted::Uncounted() {
  ++uncounted;
}

Uncounted::~Uncounted() {
  --uncounted;
}

std::size_t certificates_alive() {
  return Certificates().size();
}

void FreeCertificates() {
  for (certificate* cert : Certificates())
    __real__Z9cert_freeP11certificate(cert);
  Certificates().clear();
}

}  // namespace failing_memory

void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  __real_free(memory);
}
void operator delete[](void* memory) noexcept {
  __real_free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  __real_free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  __real_free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  __real_free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  __real_free(memory);
}

void* __wrap_malloc(std::size_t size) {
  return Allocate(size);
}

void __wrap_free(void* memory) {
  __real_free(memory);
}

certificate* __wrap__Z10cert_allocv() {
  certificate* const cert = __real__Z10cert_allocv();
  const failing_memory::Uncounted uncounted_here;
  if (cert != nullptr)
    Certificates().insert(cert);
  return cert;
}

void __wrap__Z9cert_freeP11certificate(certificate* cert) {
  if (cert != nullptr && Certificates().erase(cert) == 0)
    __builtin_trap();  // Freed twice, or never allocated.
  __real__Z9cert_freeP11certificate(cert);
}
