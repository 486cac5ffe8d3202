// The PIV card without a reader: sends command APDUs and checks the response APDUs.
#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <cstdio>
#include <memory>
#include <string>

#include "emulated_card/apdu.h"
#include "emulated_card/piv_card.h"
#include "support/certificates.h"
#include "support/files.h"
#include "support/hex.h"
#include "support/rsa_key.h"

namespace {

const std::string kDiscovery = "00cb3fff035c017e00";
const std::string kRightPin = "0020008008313233343536ffff";
const std::string kWrongPinCommand = "0020008008393939393939ffff";
const std::string kRightPuk = "00200081083132333435363738";

Bytes FromHex(const std::string& hex) {
  const std::string bytes = support::FromHex(hex);
  return Bytes(bytes.begin(), bytes.end());
}

std::string ToHex(const Bytes& bytes) {
  return support::Hex(std::string(bytes.begin(), bytes.end()));
}

// Files with a key and its certificate, and the path of a file for the state of the card.
class CardFiles {
 public:
  CardFiles() {
    const std::shared_ptr<const support::RsaKey> key = support::RsaKey::Generate(2048);
    folder_.Write("key.pem", key->pem());
    const std::string der = support::MakeCertificate(*key, {});
    std::FILE* const file = std::fopen(certificate_path().c_str(), "w");
    PEM_write(file, "CERTIFICATE", "", reinterpret_cast<const unsigned char*>(der.data()),
              static_cast<long>(der.size()));
    std::fclose(file);
  }

  std::string key_path() const { return folder_.File("key.pem"); }
  std::string certificate_path() const { return folder_.File("certificate.pem"); }
  std::string state_path() const { return folder_.File("state"); }

 private:
  support::TempFolder folder_;
};

class PivCardTest : public testing::Test {
 protected:
  // Makes a new card from the files, as after a reset of the reader.
  void Insert() {
    std::map<std::uint8_t, CardKey> keys;
    for (const std::uint8_t reference : Bytes{0x9a, 0x9c, 0x9e})
      keys.emplace(reference, CardKey(files_.key_path(), files_.certificate_path()));
    card_ = std::make_unique<PivCard>(
        std::move(keys), PinState::LoadOrCreate(files_.state_path(), "123456", "12345678"),
        files_.state_path());
    apdus_ = std::make_unique<ApduLayer>(
        [this](const Command& command) { return card_->Execute(command); });
  }
  void SetUp() override { Insert(); }

  std::string Send(const std::string& hex) { return ToHex(apdus_->Exchange(FromHex(hex))); }
  // Sends a command, and GET RESPONSE until the response is complete.
  std::string SendAndCollect(const std::string& hex) {
    std::string answer = Send(hex);
    while (answer.size() > 4 && answer.substr(answer.size() - 4, 2) == "61")
      answer = answer.substr(0, answer.size() - 4) + Send("00c0000000");
    return answer;
  }

  // Sends GENERAL AUTHENTICATE as two chained commands, like most drivers. Returns the complete
  // response with its status word.
  std::string SignWith(const std::string& reference, const Bytes& block) {
    const Bytes request = Tlv({0x7c}, Tlv({0x82}, {}) + Tlv({0x81}, block));
    const std::string hex = ToHex(request);
    EXPECT_EQ(Send("108707" + reference + "ff" + hex.substr(0, 510)), "9000");
    char length[3];
    std::snprintf(length, sizeof length, "%02x", static_cast<unsigned>(request.size() - 255));
    return SendAndCollect("008707" + reference + length + hex.substr(510) + "00");
  }

  static Bytes Block() {
    Bytes block(256, 0xff);
    block[0] = 0;
    block[1] = 1;
    return block;
  }

  CardFiles files_;
  std::unique_ptr<PivCard> card_;
  std::unique_ptr<ApduLayer> apdus_;
};

TEST_F(PivCardTest, SelectsTheApplicationWithOrWithoutVersion) {
  const std::string answer = "61114f0600001000010079074f05a0000003089000";
  EXPECT_EQ(Send("00a404000ba00000030800001000010000"), answer);
  EXPECT_EQ(Send("00a4040009a0000003080000100000"), answer);
  EXPECT_EQ(Send("00a4040009a0000000030000000000"), "6a82");
}

TEST_F(PivCardTest, ReturnsOnlyExistingDataObjects) {
  EXPECT_EQ(Send(kDiscovery), "7e124f0ba0000003080000100001005f2f0240009000");
  EXPECT_EQ(Send("00cb3fff055c035fc10c00"), "6a82");
  EXPECT_EQ(Send("00cb3fff055c035fc10b00"), "6a82") << "this card has no key 9D";
}

TEST_F(PivCardTest, ReturnsACertificateInSeveralResponses) {
  EXPECT_EQ(Send("00cb3fff055c035fc10500").substr(2 * 256), "6100");
  const std::string answer = SendAndCollect("00cb3fff055c035fc10500");
  const Bytes der = CardKey(files_.key_path(), files_.certificate_path()).certificate_der();
  EXPECT_NE(answer.find(ToHex(Tlv({0x70}, der) + FromHex("710100fe00")) + "9000"),
            std::string::npos);
}

TEST_F(PivCardTest, BlocksThePinAfterThreeWrongTries) {
  EXPECT_EQ(Send("00200080"), "63c3");
  EXPECT_EQ(Send(kWrongPinCommand), "63c2");
  EXPECT_EQ(Send(kWrongPinCommand), "63c1");
  EXPECT_EQ(Send(kRightPin), "9000");
  EXPECT_EQ(Send("00200080"), "9000") << "the PIN is verified";
  for (const char* answer : {"63c2", "63c1", "6983"})
    EXPECT_EQ(Send(kWrongPinCommand), answer);
  EXPECT_EQ(Send(kRightPin), "6983");
}

TEST_F(PivCardTest, KeepsTryCounterAcrossInsertions) {
  Send(kWrongPinCommand);
  Insert();
  EXPECT_EQ(Send("00200080"), "63c2");
}

TEST_F(PivCardTest, MalformedPinCostsNoTry) {
  EXPECT_EQ(Send("0020008008ffffffffffffffff"), "6a80");
  EXPECT_EQ(Send("0020008008313233ff34353637"), "6a80");
  EXPECT_EQ(Send("0020008004313233343536ff"), "6700") << "Lc is 4, but 7 bytes follow";
  EXPECT_EQ(Send("00200080"), "63c3");
}

TEST_F(PivCardTest, ResetsThePinWithThePuk) {
  for (int i = 0; i < 3; ++i)
    Send(kWrongPinCommand);
  EXPECT_EQ(Send("002c0080103132333435363738363534333231ffff"), "9000");
  EXPECT_EQ(Send("0020008008363534333231ffff"), "9000");
}

TEST_F(PivCardTest, ResetsThePinAfterPukLogin) {
  EXPECT_EQ(Send("002c028008363534333231ffff"), "6982");
  EXPECT_EQ(Send(kRightPuk), "9000");
  EXPECT_EQ(Send("002c028008363534333231ffff"), "9000");
  EXPECT_EQ(Send("0020008008363534333231ffff"), "9000");
  EXPECT_EQ(Send("002c028006313233343536"), "9000") << "without padding";
  EXPECT_EQ(Send(kRightPin), "9000");
}

TEST_F(PivCardTest, BlocksThePukAfterThreeWrongTries) {
  for (const char* answer : {"63c2", "63c1", "6983"})
    EXPECT_EQ(Send("002c0080103939393939393939363534333231ffff"), answer);
  EXPECT_EQ(Send(kRightPuk), "6983");
}

TEST_F(PivCardTest, ChangesPinAndPuk) {
  EXPECT_EQ(Send("0024008010313233343536ffff363534333231ffff"), "9000");
  EXPECT_EQ(Send(kRightPin), "63c2");
  EXPECT_EQ(Send("002400811031323334353637383837363534333231"), "9000");
  EXPECT_EQ(Send(kRightPuk), "63c2");
}

TEST_F(PivCardTest, SignsOnlyAfterThePin) {
  EXPECT_EQ(SignWith("9a", Block()), "6982");
  Send(kRightPin);
  const std::string answer = SignWith("9a", Block());
  const Bytes signature = *CardKey(files_.key_path(), files_.certificate_path()).Apply(Block());
  EXPECT_EQ(answer, ToHex(Tlv({0x7c}, Tlv({0x82}, signature))) + "9000");
  EXPECT_EQ(SignWith("9a", Block()), answer) << "any number of times";
  card_->Reset();
  EXPECT_EQ(SignWith("9a", Block()), "6982");
}

TEST_F(PivCardTest, RequiresThePinDirectlyBeforeEachUseOfTheSignatureKey) {
  Send(kRightPin);
  Send(kDiscovery);
  EXPECT_EQ(SignWith("9c", Block()), "6982");
  Send(kRightPin);
  EXPECT_EQ(SignWith("9c", Block()).size(), 2 * (4 + 4 + 256 + 2));
  EXPECT_EQ(SignWith("9c", Block()), "6982") << "only once";
}

TEST_F(PivCardTest, UsesTheCardAuthenticationKeyWithoutPin) {
  EXPECT_EQ(SignWith("9e", Block()).size(), 2 * (4 + 4 + 256 + 2));
}

TEST_F(PivCardTest, RefusesABlockNotLessThanTheModulus) {
  EXPECT_EQ(SignWith("9e", Bytes(256, 0xff)), "6a80");
}

TEST_F(PivCardTest, RefusesUnknownAndMalformedCommands) {
  EXPECT_EQ(Send("00fd000000"), "6d00");
  EXPECT_EQ(Send("0087119a00"), "6a86");
  EXPECT_EQ(Send("00cb"), "6700");
  EXPECT_EQ(Send("00c0000000"), "6985") << "no response is pending";
}

TEST(TlvTest, FindsNothingBeyondTheEnd) {
  EXPECT_EQ(FindTlv(FromHex("8102aabb"), 0x81), FromHex("aabb"));
  EXPECT_EQ(FindTlv(FromHex("82008101cc"), 0x81), FromHex("cc"));
  EXPECT_FALSE(FindTlv(FromHex("8103aabb"), 0x81));
  EXPECT_FALSE(FindTlv(FromHex("8183"), 0x81));
  EXPECT_FALSE(FindTlv(FromHex("81ffffffffff"), 0x81));
  EXPECT_FALSE(FindTlv({}, 0x81));
}

}  // namespace
