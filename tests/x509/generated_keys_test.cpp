// Generated certificates with every size of key and serial number and every key usage.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "expect_agreement.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Generated, ReturnsRsaModulusOfAnySize) {
  for (std::size_t bits = 1; bits <= 16384; bits += bits < 64 ? 1 : bits / 16) {
    std::string modulus((bits + 7) / 8, '\x5a');
    modulus[0] = static_cast<char>(1 << ((bits - 1) % 8));
    const std::string der = Certificate().Rsa(modulus).Der();
    EXPECT_EQ(Parsed(der).Modulus().octets, modulus) << bits;
    EXPECT_EQ(ExpectAgreement(der), 0);
  }
}

TEST(Generated, ReturnsRsaModulusOfUpTo8193Octets) {
  for (const std::size_t size : {2048U, 2049U, 8192U, 8193U}) {
    for (const char first : {'\x01', '\x7f', '\x80', '\xff'}) {
      const std::string modulus = first + std::string(size - 1, 'm');
      const std::string der = Certificate().Rsa(modulus).Der();
      EXPECT_EQ(Parsed(der).Modulus().octets, modulus) << size;
      EXPECT_EQ(ExpectAgreement(der), 0);
    }
  }
  const std::string der = Certificate().Rsa(std::string(8194, 'm')).Der();
  EXPECT_EQ(Parsed(der).Modulus().code, CodeOf(Reason::kBufferTooSmall));
  EXPECT_EQ(ExpectAgreement(der), 0);
}

TEST(Generated, ReturnsRsaExponentOfUpTo17Octets) {
  for (std::size_t size = 1; size <= 17; ++size) {
    for (const char first : {'\x01', '\x80', '\xff'}) {
      const std::string exponent = first + std::string(size - 1, '\x01');
      const std::string der = Certificate().Rsa("\xc1\x01", exponent).Der();
      EXPECT_EQ(Parsed(der).Exponent().octets, exponent) << size;
      EXPECT_EQ(ExpectAgreement(der), 0);
    }
  }
  const std::string der = Certificate().Rsa("\xc1\x01", std::string(18, '\x01')).Der();
  EXPECT_EQ(Parsed(der).Exponent().code, CodeOf(Reason::kBufferTooSmall));
  EXPECT_EQ(ExpectAgreement(der), 0);
}

TEST(Generated, ReturnsEveryKeyUsage) {
  for (int bits = 0; bits < 512; ++bits) {
    const int usage = (bits & 0xff) | (bits >> 8 << 15);
    const std::string der = Certificate().KeyUsage(usage).Der();
    const Parsed cert(der);
    EXPECT_EQ(cert.KeyUsageCode(), 0);
    EXPECT_EQ(cert.KeyUsage(), usage);
    EXPECT_EQ(ExpectAgreement(der), 0);
  }
}

TEST(Generated, ReturnsEveryKeyUsageWithTrailingZeroBits) {
  for (int bits = 0; bits < 512; ++bits) {
    const int usage = (bits & 0xff) | (bits >> 8 << 15);
    const std::string first(1, static_cast<char>(bits & 0xff));
    const std::string second(1, static_cast<char>(bits >> 8 << 7));
    std::vector<std::string> encodings;
    for (int num_unused_bits = 0; num_unused_bits < 8; ++num_unused_bits) {
      encodings.push_back(der::BitString(first + second, num_unused_bits));
      encodings.push_back(der::BitString(first + second + Bytes("\0"), num_unused_bits));
      if (bits < 256 && (bits & ((1 << num_unused_bits) - 1)) == 0)
        encodings.push_back(der::BitString(first, num_unused_bits));
    }
    for (const std::string& encoding : encodings) {
      const std::string der = Certificate().Add(der::KeyUsageExtension(encoding)).Der();
      const Parsed cert(der);
      EXPECT_EQ(cert.KeyUsageCode(), 0);
      EXPECT_EQ(cert.KeyUsage(), usage);
      if (bits % 16 == 0) {
        EXPECT_EQ(ExpectAgreement(der), 0);
      }
    }
  }
}

TEST(Generated, ReturnsSerialOfUpTo16834Octets) {
  EXPECT_EQ(ExpectAgreement(Certificate().Serial("").Der()), CodeOf(Reason::kIntegerEmpty));
  for (std::size_t size = 1; size <= 16834; size += size < 40 ? 1 : size / 3) {
    for (const char first : {'\x01', '\x7f', '\x80', '\xfe'}) {
      const std::string serial = first + std::string(size - 1, 's');
      const std::string der = Certificate().Serial(serial).Der();
      EXPECT_EQ(Parsed(der).Serial().octets, serial);
      EXPECT_EQ(ExpectAgreement(der), 0);
    }
  }
  const std::string exact(16834, 's');
  EXPECT_EQ(Parsed(Certificate().Serial(exact).Der()).Serial().octets, exact);
  EXPECT_EQ(ExpectAgreement(Certificate().Serial(exact).Der()), 0);
  const std::string longer = Certificate().Serial(exact + "s").Der();
  EXPECT_EQ(Parsed(longer).Serial().code, CodeOf(Reason::kBufferTooSmall));
  EXPECT_EQ(ExpectAgreement(longer), 0);
}

TEST(Generated, AgreesOnSerialsOfTwoOctets) {
  for (int number = 0; number < 65536; number += 97) {
    const std::string serial = {static_cast<char>(number >> 8), static_cast<char>(number & 0xff)};
    ExpectAgreement(Certificate().Serial(serial).Der());
  }
}

}  // namespace
