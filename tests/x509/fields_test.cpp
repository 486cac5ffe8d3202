// Queries for the CA flag, the key usage, the serial number and the RSA key.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(IsCa, FollowsBasicConstraints) {
  EXPECT_EQ(Parsed(Certificate().Ca(true).Der()).IsCa(), 1);
  EXPECT_EQ(Parsed(Certificate().Ca(false).Der()).IsCa(), 0);
}

TEST(IsCa, IsFalseWithoutBasicConstraints) {
  EXPECT_EQ(Parsed(Certificate().KeyUsage(4).Der()).IsCa(), 0);
}

TEST(IsCa, IgnoresPathLength) {
  for (const std::string& length : {Bytes("\x00"), Bytes("\x7f"), Bytes("\x00\xff"),
                                    Bytes("\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00")}) {
    const std::string yes = der::Boolean(0xff) + der::Integer(length);
    EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(yes)).Der()).IsCa(), 1);
    EXPECT_EQ(Parsed(Certificate().Add(der::BasicConstraints(der::Integer(length))).Der()).IsCa(),
              0);
  }
}

TEST(KeyUsage, DistinguishesAbsentFromEmpty) {
  const Parsed absent(Certificate().Der());
  EXPECT_EQ(absent.KeyUsageCode(), -2);
  EXPECT_EQ(absent.KeyUsage(), -1);
  const Parsed empty(Certificate().KeyUsage(0).Der());
  EXPECT_EQ(empty.KeyUsageCode(), 0);
  EXPECT_EQ(empty.KeyUsage(), 0);
}

// Users write filters with these numbers. Bit 0 of the extension is the most significant bit of the
// first octet (X.690, 8.6.2).
TEST(KeyUsage, MapsEveryNamedBit) {
  const struct {
    std::string octets;
    int usage;
  } bits[] = {{"\x80", 128}, {"\x40", 64}, {"\x20", 32},
              {"\x10", 16},  {"\x08", 8},  {"\x04", 4},
              {"\x02", 2},   {"\x01", 1},  {Bytes("\x00\x80"), 32768}};
  for (const auto& bit : bits) {
    const Parsed cert(
        Certificate().Add(der::KeyUsageExtension(der::BitString(bit.octets, 0))).Der());
    EXPECT_EQ(cert.KeyUsageCode(), 0) << bit.usage;
    EXPECT_EQ(cert.KeyUsage(), bit.usage);
  }
}

TEST(KeyUsage, IgnoresUnnamedBits) {
  const Parsed cert(
      Certificate().Add(der::KeyUsageExtension(der::BitString("\x80\xff\xff", 0))).Der());
  EXPECT_EQ(cert.KeyUsageCode(), 0);
  EXPECT_EQ(cert.KeyUsage(), 128 | 32768);
}

TEST(Serial, IsReturnedAsEncoded) {
  for (const std::string& serial :
       {Bytes("\x00"), Bytes("\x01"), Bytes("\x00\x80"), Bytes("\x80"), Bytes("\xff"),
        Bytes("\xff\x7f"), std::string(21, 'x'), std::string(16834, 'x')}) {
    EXPECT_EQ(Parsed(Certificate().Serial(serial).Der()).Serial().octets, serial);
  }
}

TEST(Serial, ZeroHasLengthOne) {
  EXPECT_EQ(Parsed(Certificate().Serial(Bytes("\x00")).Der()).Serial().octets, Bytes("\x00"));
}

TEST(RsaKey, HasNoLeadingZero) {
  const std::string modulus = "\xc1" + std::string(255, 'm');
  const Parsed cert(Certificate().Rsa(modulus, {'\x01', '\x00', '\x01'}).Der());
  EXPECT_EQ(cert.Modulus().octets, modulus);
  EXPECT_EQ(cert.Modulus().octets.size(), 256U);
  EXPECT_EQ(cert.Exponent().octets, Bytes("\x01\x00\x01"));
}

TEST(RsaKey, MayLackParameters) {
  Certificate certificate;
  certificate.public_key =
      der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", ""),
                     der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")));
  EXPECT_EQ(Parsed(certificate.Der()).Modulus().octets, "\xc1");
}

}  // namespace
