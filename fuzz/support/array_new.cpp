// Replaces operator new[]. The language requires std::bad_alloc for an array that is too large, but
// AddressSanitizer ends the program, so the code that handles the exception would never be tested.
#include <cstdlib>
#include <new>

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return size < std::size_t{1} << 30 ? std::malloc(size > 0 ? size : 1) : nullptr;
}

void* operator new[](std::size_t size) {
  if (void* const memory = operator new[](size, std::nothrow))
    return memory;
  throw std::bad_alloc();
}

void operator delete[](void* memory) noexcept {
  std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
