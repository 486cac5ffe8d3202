#include "pkcs11/traced_loader.h"

#include <dlfcn.h>

#include <map>
#include <optional>

#include "scripted_provider/trace.h"
#include "support/loader.h"

namespace {

// What dlerror() returns instead of the loader's own text.
std::optional<std::string> error_text;
bool has_no_error = false;

void Trace(const std::string& line) {
  scripted::Trace::Instance().Add(line);
}

class TracedLoader : public support::Loader {
 public:
  TracedLoader() { support::SetLoader(this); }

  void* Open(const char* path, int mode) override {
    void* const handle = Loader::Open(path, mode);
    const std::string mode_text = mode == RTLD_LAZY ? "RTLD_LAZY" : "mode " + std::to_string(mode);
    Trace(std::string("dlopen(") + path + ", " + mode_text +
          ") = " + (handle != nullptr ? "OK" : "NULL"));
    if (handle != nullptr)
      paths_[handle] = path;
    return handle;
  }

  void* Symbol(void* handle, const char* name) override {
    void* const address = Loader::Symbol(handle, name);
    Trace(std::string("dlsym(") + name + ") = " + (address != nullptr ? "OK" : "NULL"));
    return address;
  }

  int Close(void* handle) override {
    const int result = Loader::Close(handle);
    const std::string& path = paths_[handle];
    Trace("dlclose(" + path + ')' + (IsMapped(path) ? ", still loaded" : ", unloaded"));
    return result;
  }

  char* Error() override {
    char* const text = Loader::Error();
    Trace("dlerror()");
    if (has_no_error)
      return nullptr;
    return error_text ? error_text->data() : text;
  }

 private:
  bool IsMapped(const std::string& path) {
    void* const handle = Loader::Open(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    return handle != nullptr && Loader::Close(handle) == 0;
  }

  std::map<void*, std::string> paths_;
};

TracedLoader loader;

}  // namespace

void SetLoaderError(const std::string& text) {
  error_text = text;
}

void SetNoLoaderError() {
  has_no_error = true;
}

void ResetLoaderError() {
  error_text.reset();
  has_no_error = false;
}
