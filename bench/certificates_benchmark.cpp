// Compares the speed of certificate libraries on Debian's root certificates. One iteration is one
// certificate: parsed, queried ten times and released.
#include <benchmark/benchmark.h>
#include <gnutls/gnutls.h>
#include <mbedtls/version.h>
#include <openssl/crypto.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "agreement.h"
#include "answers.h"
#include "certificate_files.h"

namespace {

struct Library {
  const char* name;
  AskFunction* ask;
};
const Library kOurs = {"cardcert", AskCardcert};
const Library kOthers[] = {
    {"libcrypto", AskLibcrypto}, {"mbedTLS", AskMbedtls}, {"GnuTLS", AskGnutls}};

// Fills the answers with `filler` first. It differs between the libraries compared, so that an
// answer that a library does not write is detected.
bool Ask(const Library& library, const std::string& der, int filler, Answers* answers) {
  std::memset(answers, filler, sizeof *answers);
  return library.ask(der, answers);
}

// Stores the certificates that every library accepts. Returns false if an answer differs from ours.
bool Check(const std::vector<CertificateFile>& roots, std::vector<std::string>* readable) {
  const auto ours = std::make_unique<Answers>();
  const auto theirs = std::make_unique<Answers>();
  bool all_same = true;
  std::size_t num_rsa_keys = 0;
  for (const CertificateFile& root : roots) {
    const char* refused_by = Ask(kOurs, root.der, 0x00, ours.get()) ? nullptr : kOurs.name;
    for (const Library& other : kOthers) {
      if (!Ask(other, root.der, 0x7f, theirs.get())) {
        refused_by = other.name;
      } else if (refused_by == nullptr) {
        const std::string difference = Difference(*ours, *theirs);
        if (!difference.empty())
          std::fprintf(stderr, "%s: %s differs in %s\n", root.path.c_str(), other.name,
                       difference.c_str());
        all_same = all_same && difference.empty();
      }
    }
    if (refused_by != nullptr) {
      std::fprintf(stderr, "%s: left out because %s refuses it\n", root.path.c_str(), refused_by);
      continue;
    }
    readable->push_back(root.der);
    num_rsa_keys += ours->modulus_len > 0 ? 1 : 0;
  }
  std::printf("%zu root certificates, %zu left out; %zu of the others have RSA keys\n",
              roots.size(), roots.size() - readable->size(), num_rsa_keys);
  return all_same;
}

// Always measures all certificates, so that each has the same weight.
void Run(benchmark::State& state, AskFunction* ask, const std::vector<std::string>& certificates) {
  const auto answers = std::make_unique<Answers>();
  const auto num_certificates = static_cast<benchmark::IterationCount>(certificates.size());
  while (state.KeepRunningBatch(num_certificates)) {
    for (const std::string& der : certificates) {
      benchmark::DoNotOptimize(ask(der, answers.get()));
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 2;

  std::vector<std::string> certificates;
  if (!Check(DebianRoots(), &certificates))
    return 1;
  if (certificates.empty()) {
    std::fprintf(stderr, "no certificates in %s: install the package ca-certificates\n",
                 kDebianRootsFolder);
    return 1;
  }

  char mbedtls_version[9] = {};
  mbedtls_version_get_string(mbedtls_version);
  std::printf("%s, Mbed TLS %s, GnuTLS %s\n", OpenSSL_version(OPENSSL_VERSION), mbedtls_version,
              gnutls_check_version(nullptr));

  benchmark::RegisterBenchmark(kOurs.name, Run, kOurs.ask, certificates);
  for (const Library& other : kOthers)
    benchmark::RegisterBenchmark(other.name, Run, other.ask, certificates);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
