// Times the certificate library beside others, over Debian's root certificates. What is counted as
// one iteration is one certificate: parsed, asked ten questions and released.
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

// The memory of both is filled with different octets first, so that an answer that a library leaves
// out is noticed.
bool Ask(const Library& library, const std::string& der, int filler, Answers* answers) {
  std::memset(answers, filler, sizeof *answers);
  return library.ask(der, answers);
}

// Stores the certificates that every library reads. False when an answer differs from ours: nobody
// is timed for wrong answers.
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
      std::fprintf(stderr, "%s: left out, since %s refuses it\n", root.path.c_str(), refused_by);
      continue;
    }
    readable->push_back(root.der);
    num_rsa_keys += ours->modulus_len > 0 ? 1 : 0;
  }
  std::printf("%zu root certificates, %zu of them left out; %zu of the others have RSA keys\n",
              roots.size(), roots.size() - readable->size(), num_rsa_keys);
  return all_same;
}

// Always all certificates, so that each counts as much as another.
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
    std::fprintf(stderr, "there are no certificates in %s\n", kDebianRootsFolder);
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
