// Runs the target of a fuzzer over the files that stand in the repository, with any compiler.
#include <gtest/gtest.h>

#include <cstdint>

#include "certificate_files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

class Replay : public testing::TestWithParam<const char*> {};

TEST_P(Replay, HoldsForEveryFile) {
  const auto files = CertificatesIn(GetParam());
  ASSERT_FALSE(files.empty()) << "no files in " << GetParam();
  for (const CertificateFile& file : files) {
    SCOPED_TRACE(file.path);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(file.der.data()), file.der.size());
  }
}

INSTANTIATE_TEST_SUITE_P(Folders, Replay,
                         testing::Values(CARDCERT_FUZZ_FOLDER "/seeds/certificate",
                                         CARDCERT_FUZZ_FOLDER "/findings/certificate"));

}  // namespace
