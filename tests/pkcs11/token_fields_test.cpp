// GetToken: the fields of slots, tokens and certificates, as they are logged and recorded.
#include "pkcs11/token_description_test.h"

namespace {

using testing::ElementsAre;

TEST_F(TokenDescriptionTest, AcceptsBlankSlotDescription) {
  provider.Slot(1, "").Token("Alice");
  Open();
  module.GetToken(1);
  EXPECT_TRACE(IdentifiesToken(1, "", "Alice"), ReadsToken(1, 1, {}),
               ReportsNoCertificate("Alice"));
}

struct FieldCase {
  std::string field;
  char padding;
  std::string logged;
};

class SlotDescription : public TokenDescriptionTest,
                        public testing::WithParamInterface<FieldCase> {};

TEST_P(SlotDescription, IsStrippedOfWhiteSpace) {
  provider.Slot(1)
      .Description(GetParam().field, GetParam().padding)
      .Token("Alice")
      .Certificate("A");
  Open();
  const std::list<pkcs11_certificate> records = module.GetToken(1);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records.front().slot_description, GetParam().logged);
  EXPECT_TRACE(IdentifiesToken(1, GetParam().logged, "Alice"), ReadsToken(1, 1, {"A"}),
               DescribesCertificate("A"), FreesCertificates({"A"}));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, SlotDescription,
    testing::Values(FieldCase{" \f\n\r\t\vReader 00 \v\t\r\n\f", ' ', "Reader 00"},
                    FieldCase{"Reader", '\0', "Reader"},
                    FieldCase{std::string("Reader\0hidden", 13), ' ', "Reader"},
                    // All 64 bytes without a terminator; the next field must not be appended.
                    FieldCase{std::string(64, 'r'), ' ', std::string(64, 'r')}));

class TokenLabel : public TokenDescriptionTest, public testing::WithParamInterface<FieldCase> {};

TEST_P(TokenLabel, LosesOnlyTrailingBlanks) {
  provider.Slot(1, "Reader").Token("").Label(GetParam().field, GetParam().padding).Certificate("A");
  Open();
  module.GetToken(1);
  EXPECT_TRACE(IdentifiesToken(1, "Reader", GetParam().logged), ReadsToken(1, 1, {"A"}),
               DescribesCertificate("A"), FreesCertificates({"A"}));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, TokenLabel,
    testing::Values(FieldCase{"AB", ' ', "AB"},      //
                    FieldCase{"  AB", ' ', "  AB"},  //
                    // The first character is never removed.
                    FieldCase{std::string(32, ' '), ' ', " "},
                    FieldCase{"AB\t\t", ' ', "AB\\x09\\x09"},
                    FieldCase{"AB", '\t', "AB" + Repeated(30, "\\x09")},
                    FieldCase{"AB", '\0', "AB"}, FieldCase{"AB  ", '\0', "AB"},
                    FieldCase{"", '\0', ""}, FieldCase{std::string("\0AB", 3), ' ', ""},
                    FieldCase{" ", '\0', " "},
                    FieldCase{std::string(32, 'x'), ' ', std::string(32, 'x')}));

struct SerialCase {
  std::string digits;
  std::string logged;
};

class Serial : public TokenDescriptionTest, public testing::WithParamInterface<SerialCase> {};

TEST_P(Serial, IsWrittenInLowerCaseHexadecimal) {
  const std::string text = "A;serial=" + GetParam().digits;
  EXPECT_THAT(Serials(Describe({text})), ElementsAre(GetParam().logged));
  // The trace writes a blank at the end of a line as \x20.
  const std::string line =
      GetParam().logged.empty() ? "log 5: Serial:\\x20" : "log 5: Serial: " + GetParam().logged;
  ExpectDescribed({text}, R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: No
  )" + line + "\nlog 5: Key length: 2048 bits\n");
}

INSTANTIATE_TEST_SUITE_P(Bytes, Serial,
                         testing::Values(SerialCase{"00AB7F", "00ab7f"}, SerialCase{"00", "00"},
                                         SerialCase{"", ""}, SerialCase{"FF80", "ff80"},
                                         SerialCase{"0102030405060708090a0b0c0d0e0f1011121314",
                                                    "0102030405060708090a0b0c0d0e0f1011121314"}));

TEST_F(TokenDescriptionTest, AcceptsSerialThatFillsBuffer) {
  std::string digits;
  for (int i = 0; i < 16834; ++i)
    digits += i % 2 == 0 ? "a1" : "b2";
  EXPECT_THAT(Serials(Describe({"A;serial=" + digits})), ElementsAre(digits));
  ExpectDescribed({"A;serial=" + digits}, DescribesCertificate("A", digits));
}

TEST_F(TokenDescriptionTest, RecordsKeyUsageAndMinusOneWithoutExtension) {
  const std::list<pkcs11_certificate> records =
      Describe({"A;usage=absent", "B;usage=0", "C;usage=32768"});
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records.front().key_usage, -1);
  EXPECT_EQ(std::next(records.begin())->key_usage, 0);
  EXPECT_EQ(records.back().key_usage, 32768);
  ClearTrace();
}

TEST_F(TokenDescriptionTest, IgnoresStoredKeyUsageWithoutExtension) {
  const std::list<pkcs11_certificate> records =
      Describe({"A;usage=absent;claim.usage=0", "B;usage=absent;claim.usage=128"});
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records.front().key_usage, -1);
  EXPECT_EQ(records.back().key_usage, -1);
  ClearTrace();
}

TEST_F(TokenDescriptionTest, TakesAnyPositiveResultForCa) {
  const std::list<pkcs11_certificate> records = Describe({"A;ca=2", "B;ca=0"});
  ASSERT_EQ(records.size(), 2u);
  EXPECT_TRUE(records.front().is_ca);
  EXPECT_FALSE(records.back().is_ca);
  ExpectDescribed({"A;ca=2", "B;ca=0"}, R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: Yes
    log 5: Serial: 01
    log 5: Key length: 2048 bits
  )" + DescribesCertificate("B"));
}

struct KeyCase {
  std::string lengths;  // Of exponent and modulus, in bytes.
  std::string bits;
};

class KeyLength : public TokenDescriptionTest, public testing::WithParamInterface<KeyCase> {};

TEST_P(KeyLength, IsRoundedDownToSixteenBits) {
  const std::string text = "A;rsa=" + GetParam().lengths;
  EXPECT_THAT(Names(Describe({text})), ElementsAre("A"));
  ExpectDescribed({text}, R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: No
    log 5: Serial: 01
    log 5: Key length: )" + GetParam().bits +
                              " bits\n");
}

INSTANTIATE_TEST_SUITE_P(Moduli, KeyLength,
                         testing::Values(KeyCase{"3:256", "2048"}, KeyCase{"3:257", "2048"},
                                         KeyCase{"1:128", "1024"}, KeyCase{"3:129", "1024"},
                                         KeyCase{"3:1", "0"}, KeyCase{"17:8193", "65536"}));

// A shorter key must not reduce the space that is offered for the next one.
TEST_F(TokenDescriptionTest, OffersWholeBufferForEachKey) {
  const std::vector<std::string> texts = {"A;rsa=1:128", "B;rsa=17:8193"};
  host.Record("cert_rsa_public_key_components");
  const std::list<pkcs11_certificate> records = Describe(texts);
  ExpectDescribed(texts, R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: No
    log 5: Serial: 01
    cert_rsa_public_key_components(A, room for 17 and 8193) = 0
    log 5: Key length: 1024 bits
    log 5: Found certificate for "CN=B"
    log 5: CA: No
    log 5: Serial: 01
    cert_rsa_public_key_components(B, room for 17 and 8193) = 0
    log 5: Key length: 65536 bits
  )");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records.front().public_exponent_len, 1u);
  EXPECT_EQ(records.front().modulus_len, 128u);
  EXPECT_EQ(records.back().public_exponent_len, 17u);
  EXPECT_EQ(records.back().modulus_len, 8193u);
}

}  // namespace
