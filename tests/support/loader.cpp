#include "support/loader.h"

extern "C" {
// Weak, because they do not exist in a program that is linked without --wrap.
__attribute__((weak)) void* __real_dlopen(const char* path, int mode);
__attribute__((weak)) void* __real_dlsym(void* handle, const char* name);
__attribute__((weak)) int __real_dlclose(void* handle);
__attribute__((weak)) char* __real_dlerror();

void* __wrap_dlopen(const char* path, int mode);
void* __wrap_dlsym(void* handle, const char* name);
int __wrap_dlclose(void* handle);
char* __wrap_dlerror();
}

namespace support {

namespace {

// Never destroyed: libraries may be closed while the program exits.
Loader& PlatformLoader() {
  static Loader& loader = *new Loader;
  return loader;
}

Loader* current = nullptr;

Loader& Current() {
  return current != nullptr ? *current : PlatformLoader();
}

}  // namespace

void* Loader::Open(const char* path, int mode) {
  return __real_dlopen != nullptr ? __real_dlopen(path, mode) : nullptr;
}

void* Loader::Symbol(void* handle, const char* name) {
  return __real_dlsym != nullptr ? __real_dlsym(handle, name) : nullptr;
}

int Loader::Close(void* handle) {
  return __real_dlclose != nullptr ? __real_dlclose(handle) : -1;
}

char* Loader::Error() {
  return __real_dlerror != nullptr ? __real_dlerror() : nullptr;
}

void SetLoader(Loader* loader) {
  current = loader;
}

}  // namespace support

void* __wrap_dlopen(const char* path, int mode) {
  return support::Current().Open(path, mode);
}

void* __wrap_dlsym(void* handle, const char* name) {
  return support::Current().Symbol(handle, name);
}

int __wrap_dlclose(void* handle) {
  return support::Current().Close(handle);
}

char* __wrap_dlerror() {
  return support::Current().Error();
}
