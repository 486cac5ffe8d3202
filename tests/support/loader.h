// Replaces dlopen(), dlsym(), dlclose() and dlerror() for the code under test.
//
// Link test_support_loader: it wraps the four functions (ld --wrap) for everything that is linked
// statically into the program. Code that is compiled with -Ddlopen=__wrap_dlopen and so on is
// redirected, too; that works where --wrap would also catch the calls of a sanitizer.
#pragma once

namespace support {

// Receives the calls. The functions of this base class call the platform's loader, or fail if the
// program was linked without --wrap.
class Loader {
 public:
  virtual ~Loader() = default;
  virtual void* Open(const char* path, int mode);
  virtual void* Symbol(void* handle, const char* name);
  virtual int Close(void* handle);
  virtual char* Error();
};

// Sends all calls from now on to `loader`, which must outlive them. With null, calls go to the
// platform's loader, as at the start of the program.
void SetLoader(Loader* loader);

}  // namespace support
