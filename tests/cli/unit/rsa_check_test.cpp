#include "cli/signature/rsa_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "support/rsa_key.h"

namespace cardcert::cli {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes ToBytes(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

class RsaCheckTest : public testing::Test {
 protected:
  static pkcs11_certificate RecordOf(const support::RsaKey& key) {
    pkcs11_certificate record;
    const std::string modulus = key.modulus();
    std::copy(modulus.begin(), modulus.end(), record.modulus);
    record.modulus_len = modulus.size();
    const std::string exponent = key.public_exponent();
    std::copy(exponent.begin(), exponent.end(), record.public_exponent);
    record.public_exponent_len = exponent.size();
    return record;
  }

  const std::shared_ptr<const support::RsaKey> key_ = support::RsaKey::Generate(1024);
  const pkcs11_certificate record_ = RecordOf(*key_);
  const Bytes signature_ = ToBytes(*key_->Sign("data"));
};

TEST_F(RsaCheckTest, AcceptsTheSignature) {
  EXPECT_TRUE(IsSignatureOn(ToBytes("data"), signature_, record_));
}

TEST_F(RsaCheckTest, RejectsASignatureOnOtherData) {
  EXPECT_FALSE(IsSignatureOn(ToBytes("date"), signature_, record_));
  EXPECT_FALSE(IsSignatureOn(ToBytes("dat"), signature_, record_));
  EXPECT_FALSE(IsSignatureOn(ToBytes("data."), signature_, record_));
  EXPECT_FALSE(IsSignatureOn({}, signature_, record_));
}

TEST_F(RsaCheckTest, RejectsASignatureByAnotherKey) {
  const pkcs11_certificate other = RecordOf(*support::RsaKey::Generate(1024));
  EXPECT_FALSE(IsSignatureOn(ToBytes("data"), signature_, other));
}

TEST_F(RsaCheckTest, RejectsAChangedSignature) {
  for (const std::size_t at : {std::size_t{0}, signature_.size() - 1}) {
    Bytes changed = signature_;
    changed[at] ^= 1;
    EXPECT_FALSE(IsSignatureOn(ToBytes("data"), changed, record_));
  }
  EXPECT_FALSE(IsSignatureOn(ToBytes("data"), {}, record_));
}

TEST_F(RsaCheckTest, RejectsEverySignatureWithoutAKey) {
  EXPECT_FALSE(IsSignatureOn(ToBytes("data"), signature_, pkcs11_certificate()));
}

TEST_F(RsaCheckTest, LimitsDataToTheModulusLessThePadding) {
  EXPECT_EQ(MaxDataLength(record_), 117U);
  pkcs11_certificate record;
  record.modulus_len = 129;  // With a leading zero byte.
  EXPECT_EQ(MaxDataLength(record), 117U);
  record.modulus_len = 11;
  record.modulus[0] = 1;
  EXPECT_EQ(MaxDataLength(record), 0U);
}

}  // namespace
}  // namespace cardcert::cli
