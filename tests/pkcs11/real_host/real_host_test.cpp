// The component with the host services of src/host: real certificates, and messages that pass
// through the real Logfile. Failures are tested with the scripted host, which can cause them; these
// tests show that the component and the services work together.
#include "host/logfile.h"
#include "pkcs11/pin_pad.h"
#include "pkcs11/provider_test.h"
#include "support/certificates.h"

namespace {

using support::CertificateDetails;
using testing::ElementsAre;

class RealHostTest : public ProviderTest {
 protected:
  RealHostTest() {
    logfile.LogToFunction([](const std::string& message, int level) {
      scripted::Trace::Instance().Add("log " + std::to_string(level) + ": " + message);
    });
  }
  ~RealHostTest() override { logfile.LogToNothing(); }

  // A CA certificate, one for signing, one without key usage, and one with an EC key.
  void OpenWithFourCertificates() {
    CertificateDetails ca;
    ca.common_name = "Example CA";
    ca.basic_constraints = "critical,CA:TRUE";
    ca.key_usage = "critical,keyCertSign,cRLSign";
    CertificateDetails signing;
    signing.common_name = "Alice";
    signing.organization = "Example";
    signing.serial = "ab7f";
    signing.key_usage = "digitalSignature,nonRepudiation";
    CertificateDetails plain;
    plain.common_name = "Plain";
    plain.serial = "02";
    plain.issuer_common_name = "Other CA";
    CertificateDetails curve;
    curve.common_name = "Curve";
    curve.serial = "03";
    provider.Slot(1, "Reader")
        .Token("Alice's card (PIN1)")
        .UserPin("1234")
        .Certificate(MakeCertificate(*key, ca), "\x01")
        .Certificate(MakeCertificate(*key, signing), "\x02")
        .Certificate(MakeCertificate(*key, plain), "\x03")
        .Certificate(support::MakeEcCertificate(curve), "\x04")
        .PrivateKey("\x02", key);
    Open();
  }

  std::shared_ptr<const support::RsaKey> key = support::RsaKey::Generate(1024);
};

TEST_F(RealHostTest, DescribesRealCertificates) {
  OpenWithFourCertificates();
  ASSERT_TRUE(module.SetNameComponents("card_label,pin_label,subject_commonName,issuer_CN"));
  ASSERT_TRUE(module.AddFilter("Signing|commonName=Example CA|192"));
  const std::list<pkcs11_certificate> records = module.GetCertificates();
  ASSERT_EQ(records.size(), 3u) << "the certificate with the EC key is left out";
  EXPECT_THAT(Names(records), ElementsAre("Alice's card/PIN1/Example CA/Example CA",
                                          "Alice's card/PIN1/Alice/Example CA",
                                          "Alice's card/PIN1/Plain/Other CA"));
  EXPECT_THAT(Serials(records), ElementsAre("01", "00ab7f", "02"));
  std::vector<std::string> subjects;
  std::vector<int> usages;
  std::vector<bool> are_cas;
  std::vector<bool> verdicts;
  for (const pkcs11_certificate& record : records) {
    subjects.push_back(record.subject);
    usages.push_back(record.key_usage);
    are_cas.push_back(record.is_ca);
    verdicts.push_back(record.matches_filter);
    EXPECT_EQ(std::string(record.modulus, record.modulus + record.modulus_len), key->modulus());
    EXPECT_EQ(
        std::string(record.public_exponent, record.public_exponent + record.public_exponent_len),
        key->public_exponent());
    EXPECT_EQ(record.slot_description, "Reader");
  }
  EXPECT_THAT(subjects, ElementsAre("CN=Example CA", "CN=Alice,O=Example", "CN=Plain"));
  EXPECT_THAT(usages, ElementsAre(6, 192, -1));
  EXPECT_THAT(are_cas, ElementsAre(true, false, false));
  EXPECT_THAT(verdicts, ElementsAre(false, true, false));
}

TEST_F(RealHostTest, LogsEachStepOfDescription) {
  OpenWithFourCertificates();
  EXPECT_EQ(module.GetToken(1).size(), 3u);
  std::vector<std::string> log;
  for (const std::string& line : scripted::Trace::Instance().lines()) {
    if (line.rfind("log ", 0) == 0)
      log.push_back(line.substr(4));
  }
  EXPECT_THAT(log,
              ElementsAre("5: Getting token for slot 1 on 'Reader'",
                          "5: Found token \"Alice's card (PIN1)\"",
                          "5: Getting certificates for slot 1",          //
                          "5: Getting certificate with id 1",            //
                          "5: Getting certificate with id 2",            //
                          "5: Getting certificate with id 3",            //
                          "5: Getting certificate with id 4",            //
                          "5: Found certificate for \"CN=Example CA\"",  //
                          "5: CA: Yes", "5: Serial: 01", "5: Key length: 1024 bits",
                          "5: Found certificate for \"CN=Alice,O=Example\"",  //
                          "5: CA: No", "5: Serial: 00ab7f", "5: Key length: 1024 bits",
                          "5: Found certificate for \"CN=Plain\"",  //
                          "5: CA: No", "5: Serial: 02", "5: Key length: 1024 bits",
                          "5: Found certificate for \"CN=Curve\"",  //
                          "5: CA: No", "5: Serial: 03",
                          "3: Unable to read public key from certificate for token \"Alice's card "
                          "(PIN1)\""));
}

TEST_F(RealHostTest, SkipsValuesThatAreNotCertificates) {
  provider.Slot(1)
      .Token("Alice")
      .Certificate("")
      .Certificate("not a certificate")
      .Certificate(MakeCertificate(*key, CertificateDetails()));
  Open();
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A"));
}

TEST_F(RealHostTest, FindsCertificateBySerial) {
  OpenWithFourCertificates();
  EXPECT_TRUE(module.CertificatePresent("00ab7f"));
  EXPECT_TRUE(module.CertificatePresent("03")) << "the type of the key must not matter";
  EXPECT_FALSE(module.CertificatePresent("ab7f"));
  EXPECT_FALSE(module.CertificatePresent("00AB7F"));
}

TEST_F(RealHostTest, SignsWithKeyOfCertificate) {
  OpenWithFourCertificates();
  PinPad pad;
  pad.Type(PIN_TYPE_USER, "9999").Type(PIN_TYPE_USER, "1234");
  const std::string data = "in place of a DigestInfo";
  unsigned char signature[128] = {};
  unsigned long length = sizeof signature;
  EXPECT_TRUE(module.Sign("00ab7f", reinterpret_cast<const unsigned char*>(data.data()),
                          data.size(), signature, &length, pad.ask(), pad.tell(), &pad));
  EXPECT_TRUE(key->Verifies(data, std::string(signature, signature + length)));
}

TEST_F(RealHostTest, AcceptsAndRefusesTextsLikeDecoder) {
  EXPECT_FALSE(module.SetNameComponents("subject_commonName, card_label"));
  EXPECT_FALSE(module.SetNameComponents("subject_commonName,"));
  EXPECT_FALSE(module.SetNameComponents("subject_commonName\\"));
  EXPECT_TRUE(module.AddFilter("a\\|b|organizationName=Smith\\, Jones|0"));
  EXPECT_EQ(module.filters.back().name, "a|b");
  EXPECT_EQ(module.filters.back().issuer_attributes.front().second, "Smith, Jones");
  EXPECT_TRACE(R"(
    log 3: Malformed certificate naming specification
    log 3: Malformed token ""
    log 3: Unable to parse certificate naming specification
  )");
}

}  // namespace
