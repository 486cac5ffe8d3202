// GetToken: which certificates of a token get a record.
#include "pkcs11/token_description_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(TokenDescriptionTest, FillsEveryFieldOfRecord) {
  const std::string text =
      "A;subject=CN=A,O=Example;serial=00ab7f;ca=1;usage=128;rsa=3:257;issuer.organizationName=X";
  host.RecordInspection();
  const std::list<pkcs11_certificate> records = Describe({text});
  ExpectDescribed({text}, R"(
    cert_subject_attr(A, commonName, size 1024) = 0
    cert_subject(A, size 16834) = 0
    log 5: Found certificate for "CN=A,O=Example"
    cert_is_ca(A) = 1
    log 5: CA: Yes
    cert_serial(A, room for 16834) = 0
    log 5: Serial: 00ab7f
    cert_key_usage(A) = 0
    cert_key_usage(A) = 0
    cert_rsa_public_key_components(A, room for 17 and 8193) = 0
    log 5: Key length: 2048 bits
  )");
  ASSERT_EQ(records.size(), 1u);
  const pkcs11_certificate& record = records.front();
  EXPECT_THAT(record.presentable_name, ElementsAre("A"));
  EXPECT_TRUE(record.is_ca);
  EXPECT_EQ(record.subject, "CN=A,O=Example");
  EXPECT_EQ(record.serial, "00ab7f");
  EXPECT_EQ(record.key_usage, 128);
  EXPECT_TRUE(record.matches_filter);
  EXPECT_EQ(record.slot_description, "Reader");
  ASSERT_EQ(record.public_exponent_len, 3u);
  EXPECT_EQ(record.public_exponent[2], 3);
  EXPECT_EQ(record.public_exponent[3], 0) << "beyond the length";
  ASSERT_EQ(record.modulus_len, 257u);
  EXPECT_EQ(record.modulus[256], 1 + 256 % 251);
  EXPECT_EQ(record.modulus[257], 0) << "beyond the length";
}

TEST_F(TokenDescriptionTest, ReturnsNoRecordsWhenSlotInfoCannotBeRead) {
  provider.Slot(4096).Token("Alice").Certificate("A");
  Open();
  provider.On("C_GetSlotInfo").Return(CKR_DEVICE_ERROR);
  EXPECT_THAT(module.GetToken(4096), IsEmpty());
  EXPECT_TRACE("C_GetSlotInfo(slot 4096) = DEVICE_ERROR",
               "log 3: Unabled to get description of slot 4096");
}

TEST_F(TokenDescriptionTest, ReturnsNoRecordsWhenTokenInfoCannotBeRead) {
  provider.Slot(4096, "Reader");
  Open();
  EXPECT_THAT(module.GetToken(4096), IsEmpty());
  EXPECT_TRACE(R"(
    C_GetSlotInfo(slot 4096) = OK
    log 5: Getting token for slot 4096 on 'Reader'
    C_GetTokenInfo(slot 4096) = TOKEN_NOT_PRESENT
    log 3: Unable to get info about token in slot 4096
  )");
}

TEST_F(TokenDescriptionTest, WritesSlotInDecimal) {
  provider.Slot(4096, "Reader").Token("Alice").Certificate("A");
  Open();
  EXPECT_THAT(Names(module.GetToken(4096)), ElementsAre("A"));
  EXPECT_TRACE(IdentifiesToken(4096, "Reader", "Alice"), ReadsToken(4096, 1, {"A"}),
               DescribesCertificate("A"), FreesCertificates({"A"}));
}

TEST_F(TokenDescriptionTest, ReportsTokenWithoutCertificates) {
  EXPECT_THAT(Describe({}), IsEmpty());
  EXPECT_TRACE(DescribesEmptyToken(1, 1, "Alice"));
}

// A certificate that cannot be described, between two that can.
struct SkipCase {
  std::string text;
  int num_lines;  // Of its description, before the failure.
  std::string message;
};

class SkippedCertificate : public TokenDescriptionTest,
                           public testing::WithParamInterface<SkipCase> {
 protected:
  // The first lines of DescribesCertificate().
  static std::string BeginsDescription(const std::string& name, int num_lines) {
    const std::string lines = DescribesCertificate(name);
    std::string::size_type end = 0;
    for (int i = 0; i < num_lines; ++i)
      end = lines.find('\n', end) + 1;
    return lines.substr(0, end);
  }
};

TEST_P(SkippedCertificate, IsReportedAndHasNoRecord) {
  const std::vector<std::string> texts = {"A", GetParam().text, "C;serial=03"};
  EXPECT_THAT(Names(Describe(texts)), ElementsAre("A", "C"));
  ExpectDescribed(texts, DescribesCertificate("A") + BeginsDescription("B", GetParam().num_lines) +
                             "log 3: " + GetParam().message + '\n' +
                             DescribesCertificate("C", "03"));
}

const std::string kNoSubject = "Unable to read subject from certificate for token \"Alice\"";
const std::string kCaUnknown = "Unable to determine if certificate for token \"Alice\" is for a CA";
const std::string kNoSerial = "Unable to read serial from certificate for token \"Alice\"";
const std::string kNoKeyUsage =
    "Unable to read key usage bits from certificate for token \"Alice\"";
const std::string kNoPublicKey = "Unable to read public key from certificate for token \"Alice\"";

INSTANTIATE_TEST_SUITE_P(Failures, SkippedCertificate,
                         testing::Values(
                             // The sign of a result does not matter, except that of cert_is_ca.
                             SkipCase{"B;fail.subject=-1;partial.subject=CN=B", 0, kNoSubject},
                             SkipCase{"B;fail.subject=1", 0, kNoSubject},  //
                             SkipCase{"B;fail.is_ca=-1", 1, kCaUnknown},   //
                             SkipCase{"B;fail.is_ca=-7", 1, kCaUnknown},   //
                             SkipCase{"B;fail.serial=-1", 2, kNoSerial},   //
                             SkipCase{"B;fail.serial=1", 2, kNoSerial},
                             // One byte more than the buffer holds.
                             SkipCase{"B;claim.serial=16835", 2, kNoSerial},
                             // -2 would mean that there is no key usage extension.
                             SkipCase{"B;fail.key_usage=-1", 3, kNoKeyUsage},
                             SkipCase{"B;fail.key_usage=-3", 3, kNoKeyUsage},
                             SkipCase{"B;fail.key_usage=2", 3, kNoKeyUsage},
                             // Not an RSA key, or one that does not fit.
                             SkipCase{"B;fail.rsa=-1", 3, kNoPublicKey},
                             SkipCase{"B;claim.exponent=18", 3, kNoPublicKey},
                             SkipCase{"B;claim.modulus=8194", 3, kNoPublicKey}));

TEST_F(TokenDescriptionTest, SkipsCertificateWithoutName) {
  module.name_components.clear();
  EXPECT_THAT(Describe({"A", "B"}), IsEmpty());
  ExpectDescribed({"A", "B"}, Repeated(2,
                                       "log 3: Unable to generate a presentable name for "
                                       "certificate for token \"Alice\"\n"));
}

TEST_F(TokenDescriptionTest, KeepsCertificateThatFailsFilters) {
  ASSERT_TRUE(module.AddFilter("Signing||128"));
  const std::list<pkcs11_certificate> records = Describe({"A;usage=1", "B;usage=129"});
  EXPECT_THAT(Names(records), ElementsAre("A", "B"));
  EXPECT_FALSE(records.front().matches_filter);
  EXPECT_TRUE(records.back().matches_filter);
  ExpectDescribed({"A;usage=1", "B;usage=129"},
                  DescribesCertificate("A") + DescribesCertificate("B"));
}

// The same work record is used for every certificate.
TEST_F(TokenDescriptionTest, RecordHoldsNothingOfPreviousCertificate) {
  const std::list<pkcs11_certificate> records =
      Describe({"A;subject=CN=A,O=Example;serial=0a0b0c;ca=1;usage=7;fail.rsa=1", "B;serial=02"});
  ASSERT_EQ(records.size(), 1u);
  EXPECT_THAT(records.front().presentable_name, ElementsAre("B"));
  EXPECT_EQ(records.front().subject, "CN=B");
  EXPECT_EQ(records.front().serial, "02");
  EXPECT_FALSE(records.front().is_ca);
  EXPECT_EQ(records.front().key_usage, -1);
  ClearTrace();
}

TEST_F(TokenDescriptionTest, RecordHoldsNothingOfPreviousKey) {
  const std::list<pkcs11_certificate> records = Describe({"A;rsa=17:8193", "B;rsa=3:128"});
  ASSERT_EQ(records.size(), 2u);
  const pkcs11_certificate& record = records.back();
  ASSERT_EQ(record.public_exponent_len, 3u);
  ASSERT_EQ(record.modulus_len, 128u);
  EXPECT_EQ(record.public_exponent[2], 3);
  EXPECT_EQ(record.modulus[127], 128);
  EXPECT_THAT(std::vector<unsigned char>(std::begin(record.public_exponent) + 3,
                                         std::end(record.public_exponent)),
              testing::Each(0));
  EXPECT_THAT(
      std::vector<unsigned char>(std::begin(record.modulus) + 128, std::end(record.modulus)),
      testing::Each(0));
  ClearTrace();
}

}  // namespace
