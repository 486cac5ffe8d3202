// GetToken: describing the certificates of the token in one slot.
#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TokenDescription : public ModuleTest {
 protected:
  // Describes a token "Alice" in slot 1 with these certificates.
  std::list<pkcs11_certificate> Describe(const std::vector<std::string>& texts) {
    scripted::Token& token = provider.Slot(1, "Reader").Token("Alice");
    for (const std::string& text : texts)
      token.Certificate(text);
    Open();
    return module.GetToken(1);
  }

  // What precedes the descriptions in the trace of Describe().
  static std::string Before(const std::vector<std::string>& texts) {
    return TokenPreamble(1, "Reader", "Alice") + ReadingToken(1, 1, texts);
  }
};

TEST_F(TokenDescription, FillsEveryFieldOfTheRecord) {
  const std::string text =
      "A;subject=CN=A,O=Example;serial=00ab7f;ca=1;usage=128;rsa=3:257;issuer.organizationName=X";
  provider.Slot(1, "Reader").Token("Alice").Certificate(text);
  Open();
  host.RecordInspection();
  const std::list<pkcs11_certificate> records = module.GetToken(1);
  EXPECT_TRACE(Before({text}) + R"(
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
    cert_free(A)
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
  EXPECT_EQ(record.public_exponent[3], 0) << "nothing beyond the length";
  ASSERT_EQ(record.modulus_len, 257u);
  EXPECT_EQ(record.modulus[256], 1 + 256 % 251);
  EXPECT_EQ(record.modulus[257], 0);
}

TEST_F(TokenDescription, WithoutSlotInformationThereIsNone) {
  provider.Slot(4096).Token("Alice").Certificate("A");
  Open();
  provider.On("C_GetSlotInfo").Return(CKR_DEVICE_ERROR);
  EXPECT_THAT(module.GetToken(4096), IsEmpty());
  EXPECT_TRACE(R"(
    C_GetSlotInfo(slot 4096) = DEVICE_ERROR
    log 3: Unabled to get description of slot 4096
  )");
}

TEST_F(TokenDescription, WithoutTokenInformationThereIsNone) {
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

TEST_F(TokenDescription, TheSlotStandsInDecimal) {
  provider.Slot(4096, "Reader").Token("Alice").Certificate("A");
  Open();
  EXPECT_THAT(Names(module.GetToken(4096)), ElementsAre("A"));
  EXPECT_TRACE(TokenPreamble(4096, "Reader", "Alice") + ReadingToken(4096, 1, {"A"}) +
               Described("A") + "cert_free(A)\n");
}

TEST_F(TokenDescription, ATokenWithoutCertificatesHasNone) {
  EXPECT_THAT(Describe({}), IsEmpty());
  EXPECT_TRACE(Before({}) + R"(
    log 3: No certificate associated with token "Alice"
  )");
}

TEST_F(TokenDescription, ADescriptionOfBlanksIsEmpty) {
  provider.Slot(1, "").Token("Alice");
  Open();
  module.GetToken(1);
  EXPECT_TRACE(TokenPreamble(1, "", "Alice") + ReadingToken(1, 1, {}) +
               "log 3: No certificate associated with token \"Alice\"\n");
}

struct FieldCase {
  std::string field;
  char padding;
  std::string text;  // As the log has it.
};

class SlotDescription : public TokenDescription, public testing::WithParamInterface<FieldCase> {};

TEST_P(SlotDescription, IsStrippedOfWhiteSpace) {
  provider.Slot(1)
      .Description(GetParam().field, GetParam().padding)
      .Token("Alice")
      .Certificate("A");
  Open();
  const std::list<pkcs11_certificate> records = module.GetToken(1);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records.front().slot_description, GetParam().text);
  EXPECT_TRACE(TokenPreamble(1, GetParam().text, "Alice") + ReadingToken(1, 1, {"A"}) +
               Described("A") + "cert_free(A)\n");
}

INSTANTIATE_TEST_SUITE_P(
    Fields, SlotDescription,
    testing::Values(FieldCase{" \f\n\r\t\vReader 00 \v\t\r\n\f", ' ', "Reader 00"},
                    FieldCase{"Reader", '\0', "Reader"},
                    FieldCase{std::string("Reader\0hidden", 13), ' ', "Reader"},
                    // All 64 bytes, ended by nothing; what follows in the structure stays out.
                    FieldCase{std::string(64, 'r'), ' ', std::string(64, 'r')}));

class TokenLabel : public TokenDescription, public testing::WithParamInterface<FieldCase> {};

TEST_P(TokenLabel, LosesTrailingBlanksOnly) {
  provider.Slot(1, "Reader").Token("").Label(GetParam().field, GetParam().padding).Certificate("A");
  Open();
  module.GetToken(1);
  EXPECT_TRACE(TokenPreamble(1, "Reader", GetParam().text) + ReadingToken(1, 1, {"A"}) +
               Described("A") + "cert_free(A)\n");
}

INSTANTIATE_TEST_SUITE_P(
    Fields, TokenLabel,
    testing::Values(FieldCase{"AB", ' ', "AB"},  //
                    FieldCase{"  AB", ' ', "  AB"},
                    // The first character is never removed.
                    FieldCase{std::string(32, ' '), ' ', " "},
                    FieldCase{"AB\t\t", ' ', "AB\\x09\\x09"},
                    FieldCase{"AB", '\t',
                              "AB" +
                                  [] {
                                    std::string tabs;
                                    for (int i = 0; i < 30; ++i)
                                      tabs += "\\x09";
                                    return tabs;
                                  }()},
                    FieldCase{"AB", '\0', "AB"}, FieldCase{"AB  ", '\0', "AB"},
                    FieldCase{"", '\0', ""}, FieldCase{std::string("\0AB", 3), ' ', ""},
                    FieldCase{" ", '\0', " "},
                    FieldCase{std::string(32, 'x'), ' ', std::string(32, 'x')}));

// Each step that can leave a certificate out: the certificate between two good ones, and what is
// logged for it.
struct StepCase {
  std::string text;
  std::string log;
};

class Steps : public TokenDescription, public testing::WithParamInterface<StepCase> {};

TEST_P(Steps, ThatFailLeaveTheCertificateOut) {
  const std::vector<std::string> texts = {"A", GetParam().text, "C;serial=03"};
  EXPECT_THAT(Names(Describe(texts)), ElementsAre("A", "C"));
  EXPECT_TRACE(Before(texts) + Described("A") + GetParam().log + Described("C", "03") + R"(
    cert_free(A)
    cert_free(B)
    cert_free(C)
  )");
}

INSTANTIATE_TEST_SUITE_P(Rows, Steps,
                         // A failure may have either sign.
                         testing::Values(StepCase{"B;fail.subject=-1;partial.subject=CN=B", R"(
          log 3: Unable to read subject from certificate for token "Alice"
        )"},
                                         StepCase{"B;fail.subject=1", R"(
          log 3: Unable to read subject from certificate for token "Alice"
        )"},
                                         StepCase{"B;fail.is_ca=-1", R"(
          log 5: Found certificate for "CN=B"
          log 3: Unable to determine if certificate for token "Alice" is for a CA
        )"},
                                         // Anything negative, not -1 alone.
                                         StepCase{"B;fail.is_ca=-7", R"(
          log 5: Found certificate for "CN=B"
          log 3: Unable to determine if certificate for token "Alice" is for a CA
        )"},
                                         StepCase{"B;fail.serial=-1", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 3: Unable to read serial from certificate for token "Alice"
        )"},
                                         StepCase{"B;fail.serial=1", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 3: Unable to read serial from certificate for token "Alice"
        )"},
                                         // More bytes than there is room for.
                                         StepCase{"B;claim.serial=16835", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 3: Unable to read serial from certificate for token "Alice"
        )"},
                                         StepCase{"B;fail.key_usage=-1", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 5: Serial: 01
          log 3: Unable to read key usage bits from certificate for token "Alice"
        )"},
                                         // Next to the -2 that says that there is none.
                                         StepCase{"B;fail.key_usage=-3", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 5: Serial: 01
          log 3: Unable to read key usage bits from certificate for token "Alice"
        )"},
                                         StepCase{"B;fail.key_usage=2", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 5: Serial: 01
          log 3: Unable to read key usage bits from certificate for token "Alice"
        )"},
                                         // No RSA key.
                                         StepCase{"B;fail.rsa=-1", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 5: Serial: 01
          log 3: Unable to read public key from certificate for token "Alice"
        )"},
                                         StepCase{"B;claim.exponent=18", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 5: Serial: 01
          log 3: Unable to read public key from certificate for token "Alice"
        )"},
                                         StepCase{"B;claim.modulus=8194", R"(
          log 5: Found certificate for "CN=B"
          log 5: CA: No
          log 5: Serial: 01
          log 3: Unable to read public key from certificate for token "Alice"
        )"}));

TEST_F(TokenDescription, ACertificateWithoutANameIsLeftOut) {
  module.name_components.clear();
  EXPECT_THAT(Describe({"A", "B"}), IsEmpty());
  EXPECT_TRACE(Before({"A", "B"}) + R"(
    log 3: Unable to generate a presentable name for certificate for token "Alice"
    log 3: Unable to generate a presentable name for certificate for token "Alice"
    cert_free(A)
    cert_free(B)
  )");
}

struct SerialCase {
  std::string digits;
  std::string text;
};

class Serial : public TokenDescription, public testing::WithParamInterface<SerialCase> {};

TEST_P(Serial, IsTwoLowerCaseDigitsAByte) {
  const std::string text = "A;serial=" + GetParam().digits;
  EXPECT_THAT(Serials(Describe({text})), ElementsAre(GetParam().text));
  const std::string shown = GetParam().text.empty() ? "\\x20" : ' ' + GetParam().text;
  EXPECT_TRACE(Before({text}) + R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: No
    log 5: Serial:)" +
               shown + R"(
    log 5: Key length: 2048 bits
    cert_free(A)
  )");
}

INSTANTIATE_TEST_SUITE_P(Bytes, Serial,
                         testing::Values(SerialCase{"00AB7F", "00ab7f"}, SerialCase{"00", "00"},
                                         SerialCase{"", ""}, SerialCase{"FF80", "ff80"},
                                         SerialCase{"0102030405060708090a0b0c0d0e0f1011121314",
                                                    "0102030405060708090a0b0c0d0e0f1011121314"}));

TEST_F(TokenDescription, ASerialThatFillsItsBufferIsTaken) {
  std::string digits;
  for (int i = 0; i < 16834; ++i)
    digits += i % 2 == 0 ? "a1" : "b2";
  EXPECT_THAT(Serials(Describe({"A;serial=" + digits})), ElementsAre(digits));
  EXPECT_TRACE(Before({"A;serial=" + digits}) + Described("A", digits) + "cert_free(A)\n");
}

TEST_F(TokenDescription, WithoutKeyUsageEveryUsageIsAllowed) {
  const std::list<pkcs11_certificate> records =
      Describe({"A;usage=absent", "B;usage=0", "C;usage=32768"});
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records.front().key_usage, -1);
  EXPECT_EQ(std::next(records.begin())->key_usage, 0);
  EXPECT_EQ(records.back().key_usage, 32768);
  ClearTrace();
}

// Whatever a host's library stores beside that answer.
TEST_F(TokenDescription, TheAnswerThatThereIsNoKeyUsageIsEnough) {
  const std::list<pkcs11_certificate> records =
      Describe({"A;usage=absent;claim.usage=0", "B;usage=absent;claim.usage=128"});
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records.front().key_usage, -1);
  EXPECT_EQ(records.back().key_usage, -1);
  ClearTrace();
}

TEST_F(TokenDescription, ACertificateThatFailsTheFiltersIsKept) {
  ASSERT_TRUE(module.AddFilter("Signing||128"));
  const std::list<pkcs11_certificate> records = Describe({"A;usage=1", "B;usage=129"});
  EXPECT_THAT(Names(records), ElementsAre("A", "B"));
  EXPECT_FALSE(records.front().matches_filter);
  EXPECT_TRUE(records.back().matches_filter);
  EXPECT_TRACE(Before({"A;usage=1", "B;usage=129"}) + Described("A") + Described("B") +
               "cert_free(A)\ncert_free(B)\n");
}

TEST_F(TokenDescription, AnythingPositiveIsACa) {
  const std::list<pkcs11_certificate> records = Describe({"A;ca=2", "B;ca=0"});
  ASSERT_EQ(records.size(), 2u);
  EXPECT_TRUE(records.front().is_ca);
  EXPECT_FALSE(records.back().is_ca);
  EXPECT_TRACE(Before({"A;ca=2", "B;ca=0"}) + R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: Yes
    log 5: Serial: 01
    log 5: Key length: 2048 bits
  )" + Described("B") +
               "cert_free(A)\ncert_free(B)\n");
}

struct KeyCase {
  std::string lengths;  // Of exponent and modulus in bytes.
  std::string bits;
};

class KeyLength : public TokenDescription, public testing::WithParamInterface<KeyCase> {};

TEST_P(KeyLength, IsRoundedDownToSixteenBits) {
  const std::string text = "A;rsa=" + GetParam().lengths;
  EXPECT_THAT(Names(Describe({text})), ElementsAre("A"));
  EXPECT_TRACE(Before({text}) + R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: No
    log 5: Serial: 01
    log 5: Key length: )" +
               GetParam().bits + R"( bits
    cert_free(A)
  )");
}

INSTANTIATE_TEST_SUITE_P(Moduli, KeyLength,
                         testing::Values(KeyCase{"3:256", "2048"}, KeyCase{"3:257", "2048"},
                                         KeyCase{"1:128", "1024"}, KeyCase{"3:129", "1024"},
                                         KeyCase{"3:1", "0"}, KeyCase{"17:8193", "65536"}));

// Not with the room that the key before has taken.
TEST_F(TokenDescription, EveryKeyIsAskedForWithTheWholeRoom) {
  const std::vector<std::string> texts = {"A;rsa=1:128", "B;rsa=17:8193"};
  host.Record("cert_rsa_public_key_components");
  const std::list<pkcs11_certificate> records = Describe(texts);
  EXPECT_TRACE(Before(texts) + R"(
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
    cert_free(A)
    cert_free(B)
  )");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records.front().public_exponent_len, 1u);
  EXPECT_EQ(records.front().modulus_len, 128u);
  EXPECT_EQ(records.back().public_exponent_len, 17u);
  EXPECT_EQ(records.back().modulus_len, 8193u);
}

// What a certificate leaves in the work record must not show in the next record.
TEST_F(TokenDescription, ARecordHoldsNothingOfTheCertificateBefore) {
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

// Nor the bytes of a longer key beyond the lengths of the next one.
TEST_F(TokenDescription, ARecordHoldsNothingOfTheKeyBefore) {
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
