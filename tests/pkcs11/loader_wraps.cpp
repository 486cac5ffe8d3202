// The platform's loader with a witness before it: the tests are linked with --wrap for its
// functions, so that the component's calls come here.
#include "pkcs11/loader_wraps.h"

#include <dlfcn.h>

#include <map>
#include <optional>

#include "scripted_provider/trace.h"

extern "C" {
void* __real_dlopen(const char* path, int mode);
void* __real_dlsym(void* handle, const char* symbol);
int __real_dlclose(void* handle);
char* __real_dlerror();

void* __wrap_dlopen(const char* path, int mode);
void* __wrap_dlsym(void* handle, const char* symbol);
int __wrap_dlclose(void* handle);
char* __wrap_dlerror();
}

namespace {

std::map<void*, std::string>& Paths() {
  static std::map<void*, std::string> paths;
  return paths;
}

// What the loader says next, if a test has told it.
std::optional<std::string> error_text;
bool says_nothing = false;

void Note(const std::string& line) {
  scripted::Trace::Instance().Add(line);
}

bool IsMapped(const std::string& path) {
  void* const handle = __real_dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  return handle != nullptr && __real_dlclose(handle) == 0;
}

}  // namespace

void SetLoaderError(const std::string& text) {
  error_text = text;
}

void SetNoLoaderError() {
  says_nothing = true;
}

void ResetLoaderError() {
  error_text.reset();
  says_nothing = false;
}

void* __wrap_dlopen(const char* path, int mode) {
  void* const handle = __real_dlopen(path, mode);
  const std::string mode_text = mode == RTLD_LAZY ? "RTLD_LAZY" : "mode " + std::to_string(mode);
  Note(std::string("dlopen(") + path + ", " + mode_text +
       ") = " + (handle != nullptr ? "OK" : "NULL"));
  if (handle != nullptr)
    Paths()[handle] = path;
  return handle;
}

void* __wrap_dlsym(void* handle, const char* symbol) {
  void* const address = __real_dlsym(handle, symbol);
  Note(std::string("dlsym(") + symbol + ") = " + (address != nullptr ? "OK" : "NULL"));
  return address;
}

int __wrap_dlclose(void* handle) {
  const int result = __real_dlclose(handle);
  const std::string& path = Paths()[handle];
  Note("dlclose(" + path + ')' + (IsMapped(path) ? ", still loaded" : ", unloaded"));
  return result;
}

char* __wrap_dlerror() {
  char* const text = __real_dlerror();
  Note("dlerror()");
  if (says_nothing)
    return nullptr;
  return error_text ? error_text->data() : text;
}
