#include "pkcs11/malloc_wrap.h"

#include <set>
#include <string>

#include "scripted_provider/trace.h"

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void __real_free(void* memory);
void __wrap_free(void* memory);
}

namespace {

// No call has this size.
constexpr std::size_t kNone = static_cast<std::size_t>(-1);
std::size_t failing_size = kNone;

// Never destroyed, since memory is freed until the process ends.
std::set<void*>& Alive() {
  static auto& alive = *new std::set<void*>;
  return alive;
}

}  // namespace

void FailMallocOf(std::size_t size) {
  failing_size = size;
}

std::size_t MallocsAlive() {
  return Alive().size();
}

void* __wrap_malloc(std::size_t size) {
  if (size != failing_size) {
    void* const memory = __real_malloc(size);
    if (memory != nullptr)
      Alive().insert(memory);
    return memory;
  }
  failing_size = kNone;
  scripted::Trace::Instance().Add("malloc(" + std::to_string(size) + ") = NULL");
  return nullptr;
}

void __wrap_free(void* memory) {
  Alive().erase(memory);
  __real_free(memory);
}
