// libFuzzer target: any octets as a certificate. The property is the differential rule of
// tests/x509/differential.h, so a finding is a disagreement as well as a crash.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "differential.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string der(reinterpret_cast<const char*>(data), size);
  const Comparison comparison = CompareWithOpenssl(der);
  if (!comparison.violation.empty()) {
    std::fprintf(stderr, "the differential rule is broken:\n%s", comparison.violation.c_str());
    std::abort();
  }
  return 0;
}
