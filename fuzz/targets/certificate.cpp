// Fuzz target: arbitrary bytes as a certificate.
// Property: the differential rule of tests/x509/differential.h. A disagreement with libcrypto is a
// finding, like a crash or a sanitizer report.
#include "differential.h"
#include "fuzzing.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string der(reinterpret_cast<const char*>(data), size);
  const Comparison comparison = CompareWithOpenssl(der);
  Check(comparison.violation.empty(),
        ("the differential rule holds:\n" + comparison.violation).c_str());
  return 0;
}
