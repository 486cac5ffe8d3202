// Makes one chosen allocation fail. Allocations are counted in operator new, in cert_alloc() of the
// host, and in malloc() of the code linked into the test.
#pragma once

#include <cstddef>

namespace failing_memory {

// Makes the n-th allocation from now on fail.
void FailAt(int nth);
// Lets all further allocations succeed. Returns true if one has failed.
bool Stop();

// Allocations are not counted while an object of this class exists.
class Uncounted {
 public:
  Uncounted();
  ~Uncounted();
  Uncounted(const Uncounted&) = delete;
  Uncounted& operator=(const Uncounted&) = delete;
};

// Returns the number of certificates that were not freed.
std::size_t certificates_alive();
// Frees them.
void FreeCertificates();

}  // namespace failing_memory
