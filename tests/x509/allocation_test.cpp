// Failing allocations, and the number and size of allocations. A separate program, because it
// replaces the global operator new.
#include <gtest/gtest.h>

#include "host/certificate.h"
#include "host/x509/refusal.h"
#include "memory_watch.h"
#include "refused_certificates.h"
#include "support/der_writer.h"

namespace {

using der::Certificate;

int Parse(const std::string& der, certificate* cert) {
  return cert_parse(reinterpret_cast<const unsigned char*>(der.data()),
                    static_cast<int>(der.size()), cert);
}

std::string CertificateWithManyExtensions() {
  Certificate certificate;
  for (int i = 0; i < 100; ++i)
    certificate.Add(der::Extension("1.2." + std::to_string(i), "x"));
  return certificate.Der();
}

const int kOutOfMemory = static_cast<int>(cardcert::x509::Reason::kOutOfMemory);

TEST(Allocation, AllocReturnsNullOnFailure) {
  certificate* cert = nullptr;
  {
    const Watch watch(0);
    cert = cert_alloc();
  }
  EXPECT_EQ(cert, nullptr);
}

TEST(Allocation, ParseReportsFailureAndKeepsOldCertificate) {
  const std::string old_der = Certificate().Subject({{"CN", "old"}}).Der();
  const std::string new_der = CertificateWithManyExtensions();
  certificate* const cert = cert_alloc();
  ASSERT_EQ(Parse(old_der, cert), 0);
  int num_allocations = 0;
  {
    certificate* const other = cert_alloc();
    const Watch watch;
    EXPECT_EQ(Parse(new_der, other), 0);
    num_allocations = memory.num_allocations;
    cert_free(other);
  }
  EXPECT_EQ(num_allocations, 2);
  for (int failing = 0; failing < num_allocations; ++failing) {
    int code = 0;
    {
      const Watch watch(failing);
      code = Parse(new_der, cert);
    }
    EXPECT_EQ(code, kOutOfMemory) << failing;
    char subject[100] = "?";
    EXPECT_EQ(cert_subject(cert, subject, sizeof subject), 0);
    EXPECT_STREQ(subject, "CN=old");
  }
  EXPECT_EQ(Parse(new_der, cert), 0);
  cert_free(cert);
}

// Expects the answers about the old certificate from every part of the record.
void ExpectOld(const certificate* cert, const char* what) {
  char subject[100] = "?";
  EXPECT_EQ(cert_subject(cert, subject, sizeof subject), 0) << what;
  EXPECT_STREQ(subject, "CN=old") << what;
  char issuer[100] = "?";
  EXPECT_EQ(cert_issuer_attr(cert, "CN", issuer, sizeof issuer), 0) << what;
  EXPECT_STREQ(issuer, "old CA") << what;
  unsigned char serial[100] = {};
  unsigned long serial_len = sizeof serial;
  EXPECT_EQ(cert_serial(cert, serial, &serial_len), 0) << what;
  EXPECT_EQ(std::string(serial, serial + serial_len), "old") << what;
  EXPECT_EQ(cert_is_ca(cert), 1) << what;
  int usage = 0;
  EXPECT_EQ(cert_key_usage(cert, &usage), 0) << what;
  EXPECT_EQ(usage, 4) << what;
  unsigned char exponent[17] = {};
  unsigned long exponent_len = sizeof exponent;
  unsigned char modulus[300] = {};
  unsigned long modulus_len = sizeof modulus;
  EXPECT_EQ(cert_rsa_public_key_components(cert, exponent, &exponent_len, modulus, &modulus_len), 0)
      << what;
  EXPECT_EQ(std::string(modulus, modulus + modulus_len), "\x81old") << what;
}

TEST(Allocation, FailureWhileRefusingKeepsOldCertificate) {
  certificate* const cert = cert_alloc();
  Certificate old;
  old.Serial("old").Issuer({{"CN", "old CA"}}).Subject({{"CN", "old"}}).Rsa("\x81old");
  ASSERT_EQ(Parse(old.KeyUsage(4).Ca(true).Der(), cert), 0);
  // The copy of the certificate, and the list of its extensions if that is long.
  for (const int failing : {0, 1}) {
    int num_failed = 0;
    for (const RefusalCase& refusal : RefusedCertificates()) {
      const std::string der = refusal.Der();
      int code = 0;
      bool failed = false;
      {
        const Watch watch(failing);
        code = Parse(der, cert);
        failed = memory.num_allocations > failing;
      }
      EXPECT_EQ(code, failed ? kOutOfMemory : static_cast<int>(refusal.reason)) << refusal.name;
      num_failed += failed ? 1 : 0;
      ExpectOld(cert, refusal.name);
    }
    EXPECT_GT(num_failed, 0) << "no certificate needs this many allocations: " << failing;
  }
  cert_free(cert);
}

TEST(Allocation, ParseAllocatesOneCopyWithoutPadding) {
  Certificate description;
  description.KeyUsage(4).Ca(true);
  const std::string der = description.Der();
  description.padding = std::string(5000, '\0');
  const std::string padded = description.Der();
  certificate* const cert = cert_alloc();
  {
    const Watch watch;
    EXPECT_EQ(Parse(padded, cert), 0);
  }
  EXPECT_EQ(memory.num_allocations, 1);
  EXPECT_EQ(memory.num_octets, der.size());
  cert_free(cert);
}

TEST(Allocation, ParseAllocatesNothingForClaimedLength) {
  certificate* const cert = cert_alloc();
  for (const char* claim :
       {"\x30\x84\x7f\xff\xff\xff\x30", "\x30\x84\xff\xff\xff\xff", "\x30\x82\xff\xff\x30"}) {
    const Watch watch;
    EXPECT_NE(Parse(claim, cert), 0);
    EXPECT_EQ(memory.num_allocations, 0);
  }
  // A wrong length further inside is found after the input has been copied.
  Certificate description;
  description.serial = std::string("\x02\x84\x7f\xff\xff\xff\x01", 7);
  const std::string der = description.Der();
  {
    const Watch watch;
    EXPECT_NE(Parse(der, cert), 0);
  }
  EXPECT_EQ(memory.num_octets, der.size());
  cert_free(cert);
}

TEST(Allocation, QueriesAllocateNothing) {
  certificate* const cert = cert_alloc();
  ASSERT_EQ(
      Parse(Certificate().Subject({{"CN", "a"}, {"1.2.3", "b"}}).KeyUsage(4).Ca(true).Der(), cert),
      0);
  char text[100];
  unsigned char exponent[17];
  unsigned char modulus[300];
  unsigned long exponent_len = sizeof exponent;
  unsigned long modulus_len = sizeof modulus;
  unsigned long serial_len = sizeof modulus;
  int usage = 0;
  {
    const Watch watch;
    EXPECT_EQ(cert_subject(cert, text, sizeof text), 0);
    EXPECT_EQ(cert_subject_attr(cert, "1.2.3", text, sizeof text), 0);
    EXPECT_EQ(cert_issuer_attr(cert, "CN", text, sizeof text), 0);
    EXPECT_EQ(cert_is_ca(cert), 1);
    EXPECT_EQ(cert_serial(cert, modulus, &serial_len), 0);
    EXPECT_EQ(cert_key_usage(cert, &usage), 0);
    EXPECT_EQ(cert_rsa_public_key_components(cert, exponent, &exponent_len, modulus, &modulus_len),
              0);
  }
  EXPECT_EQ(memory.num_allocations, 0);
  cert_free(cert);
}

}  // namespace
