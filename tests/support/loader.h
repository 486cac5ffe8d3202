// Replaces dlopen(), dlsym(), dlclose() and dlerror() for the code under test.
//
// There are two ways to redirect the calls:
//   - Link test_support_wrapped_loader, which uses ld's option --wrap. It redirects the calls of
//     everything that is linked statically into the program.
//   - Compile the code under test with -Ddlopen=__wrap_dlopen and so on, and link
//     test_support_loader. This redirects the calls of that code only.
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
