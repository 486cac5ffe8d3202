#include "pkcs11/malloc_wrap.h"

#include <string>

#include "provider/trace.h"

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
}

namespace {

// Nobody asks for so much.
constexpr std::size_t kNever = static_cast<std::size_t>(-1);
std::size_t failing_size = kNever;

}  // namespace

void FailMallocOf(std::size_t size) {
  failing_size = size;
}

void* __wrap_malloc(std::size_t size) {
  if (size != failing_size)
    return __real_malloc(size);
  failing_size = kNever;
  scripted::Trace::Instance().Add("malloc(" + std::to_string(size) + ") = NULL");
  return nullptr;
}
