// The differential rule on public certificates.
#include "differential.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <map>

#include "certificate_files.h"
#include "host/certificate.h"

namespace {

struct Counts {
  int num_files = 0;
  int num_accepted = 0;
  int num_openssl_accepted = 0;
  int num_violations = 0;
  int num_texts_not_compared = 0;
  std::map<int, int> stricter;  // by code
};

Counts CompareAll(const std::vector<CertificateFile>& files) {
  Counts counts;
  for (const CertificateFile& file : files) {
    const Comparison comparison = CompareWithOpenssl(file.der);
    ++counts.num_files;
    counts.num_accepted += comparison.parse_code == 0 ? 1 : 0;
    counts.num_openssl_accepted += comparison.openssl_accepts ? 1 : 0;
    counts.num_texts_not_compared += comparison.whole_text_compared ? 0 : 1;
    for (const int code : comparison.stricter)
      ++counts.stricter[code];
    if (!comparison.violation.empty()) {
      ++counts.num_violations;
      ADD_FAILURE() << file.path << "\n" << comparison.violation;
    }
  }
  return counts;
}

void Print(const std::string& set, const Counts& counts) {
  std::cout << "counted: " << set << ": " << counts.num_files << " files, " << counts.num_accepted
            << " accepted, " << counts.num_openssl_accepted << " accepted by libcrypto, "
            << counts.num_violations << " violations, " << counts.num_texts_not_compared
            << " subjects not compared as text\n";
  for (const auto& [code, number] : counts.stricter)
    std::cout << "  refused by us alone: " << number << ": " << cert_error_text(code) << "\n";
}

TEST(Differential, HoldsForDebianRoots) {
  const std::vector<CertificateFile> roots = DebianRoots();
  ASSERT_FALSE(roots.empty()) << "no certificates in " << kDebianRootsFolder
                              << ": install the package ca-certificates";
  const Counts counts = CompareAll(roots);
  Print("Debian's roots", counts);
  EXPECT_EQ(counts.num_accepted, counts.num_files);
  EXPECT_EQ(counts.num_texts_not_compared, 0);
}

class Corpus : public testing::TestWithParam<const char*> {};

TEST_P(Corpus, GivesTheSameAnswers) {
  const std::string corpus = CARDCERT_CORPUS_FOLDER;
  if (corpus.empty())
    GTEST_SKIP()
        << "no public certificates were compared: the CMake variable CARDCERT_CORPUS is empty";
  const std::string folder = corpus + "/" + GetParam();
  if (!std::filesystem::is_directory(folder))
    GTEST_SKIP() << "no public certificates were compared: " << folder << " is not a folder";
  const Counts counts = CompareAll(CertificatesIn(folder));
  Print(GetParam(), counts);
  EXPECT_GT(counts.num_files, 0);
  EXPECT_EQ(counts.num_texts_not_compared, 0);
  // Profiles that are in use.
  if (GetParam() == std::string("piv-icam-cards")) {
    EXPECT_EQ(counts.num_accepted, counts.num_files);
  }
}

INSTANTIATE_TEST_SUITE_P(Sets, Corpus,
                         testing::Values("nist-pkits", "piv-icam-cards", "boringssl-pki",
                                         "openssl-3.0", "mbedtls-hex", "golang"));

}  // namespace
