// Memory that runs out at a chosen allocation. Counted are operator new, the host's cert_alloc and
// the malloc of the code that the test is linked with; not what the provider allocates.
#pragma once

#include <cstddef>

namespace failing_memory {

// The n-th allocation from now on fails.
void FailAt(int nth);
// No further one fails; whether one has.
bool Stop();

// While it lives, allocations are not counted.
class Uncounted {
 public:
  Uncounted();
  ~Uncounted();
  Uncounted(const Uncounted&) = delete;
  Uncounted& operator=(const Uncounted&) = delete;
};

// Parsed certificates that were not freed; Free frees them.
std::size_t certificates_alive();
void FreeCertificates();

}  // namespace failing_memory
