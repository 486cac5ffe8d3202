#include "memory_watch.h"

#include <cstdlib>
#include <new>

Memory memory;

namespace {

void* Allocate(std::size_t size) {
  if (memory.counting) {
    const int number = memory.num_allocations++;
    memory.num_octets += size;
    if (number == memory.failing_allocation)
      return nullptr;
  }
  return std::malloc(size != 0 ? size : 1);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* const allocated = Allocate(size))
    return allocated;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* allocated) noexcept {
  std::free(allocated);
}
void operator delete[](void* allocated) noexcept {
  std::free(allocated);
}
void operator delete(void* allocated, std::size_t) noexcept {
  std::free(allocated);
}
void operator delete[](void* allocated, std::size_t) noexcept {
  std::free(allocated);
}
void operator delete(void* allocated, const std::nothrow_t&) noexcept {
  std::free(allocated);
}
void operator delete[](void* allocated, const std::nothrow_t&) noexcept {
  std::free(allocated);
}
