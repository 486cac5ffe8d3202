// Writes the inputs of the certificate fuzz targets: small certificates, one for each form that the
// parser distinguishes, and regression inputs. inputs/README.md says what each of them shows.
//   make_certificate_inputs fuzz/inputs/certificate
#include <fstream>
#include <iostream>

#include "support/der_writer.h"

namespace {

using der::Certificate;

// As small as possible: the smaller the certificate, the faster the fuzzer covers it.
Certificate SmallCertificate() {
  Certificate certificate;
  certificate.Issuer({{"CN", "i"}}).Subject({{"CN", "s"}}).Rsa("\xc1\x01", {1, 0, 1});
  certificate.signature = der::BitString("s");
  return certificate;
}

Certificate Version1() {
  Certificate certificate = SmallCertificate();
  certificate.version = "";
  return certificate;
}

Certificate UniqueIds() {
  Certificate certificate = SmallCertificate();
  certificate.issuer_unique_id = der::Tlv(0x81, std::string({0, 'i'}));
  certificate.subject_unique_id = der::Tlv(0x82, std::string({0, 's'}));
  return certificate.Ca(true);
}

Certificate EveryStringType() {
  std::string rdns;
  for (const int tag : {0x0c, 0x12, 0x13, 0x14, 0x16})
    rdns += der::Set(der::Attribute("O", der::Tlv(tag, "1")));
  rdns += der::Set(der::Attribute("OU", der::Tlv(0x1c, std::string({0, 0, 0x20, '\xac'}))));
  rdns += der::Set(der::Attribute("CN", der::Tlv(0x1e, std::string({0x20, '\xac'}))));
  rdns += der::Set(der::Attribute("2.5.4.45", der::BitString("\xa0", 5)));
  rdns += der::Set(der::Attribute("2.5.4.16", der::Sequence(der::Utf8("a"), der::Utf8("b"))));
  rdns += der::Set(der::Attribute("C", der::Printable("XX")), der::Attribute("L", der::Utf8("l")));
  rdns += der::Set(der::Attribute("1.2.3.4", der::Utf8(" #,+\"\\<>;=\n ")));
  Certificate certificate = SmallCertificate();
  certificate.subject = der::Sequence(rdns);
  return certificate;
}

Certificate EmptyNames() {
  Certificate certificate = SmallCertificate();
  certificate.subject = certificate.issuer = der::Sequence();
  return certificate;
}

Certificate GeneralizedTimes() {
  Certificate certificate = SmallCertificate();
  certificate.validity =
      der::Sequence(der::Generalized("20500101000000Z"), der::Generalized("99991231235959Z"));
  return certificate;
}

Certificate ToleratedEncodings() {
  Certificate certificate = SmallCertificate();
  certificate.Add(der::BasicConstraints(der::Boolean(0)));
  certificate.Add(
      der::Extension("2.5.29.15", der::BitString(std::string({6, 0}), 0), der::Boolean(0)));
  return certificate.Add(der::Extension("2.5.29.37", "x", der::Boolean(1)));
}

Certificate Padded() {
  Certificate certificate = SmallCertificate();
  certificate.padding = std::string(16, '\0');
  return certificate;
}

Certificate NegativeIntegers() {
  Certificate certificate = SmallCertificate();
  certificate.public_key =
      der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", ""),
                     der::Sequence(der::Integer("\xc1"), der::Integer("\x81")));
  return certificate.Serial("\x80");
}

Certificate ManyExtensions() {
  Certificate certificate = SmallCertificate();
  for (int i = 0; i < 40; ++i)
    certificate.Add(der::Extension("1.2." + std::to_string(i), ""));
  return certificate;
}

Certificate NameInPrimitiveForm() {
  Certificate certificate = SmallCertificate();
  certificate.subject[0] = 0x10;
  return certificate;
}

Certificate RdnInPrimitiveForm() {
  Certificate certificate = SmallCertificate();
  certificate.subject[2] = 0x11;
  return certificate;
}

Certificate VersionInHighTagForm() {
  Certificate certificate = SmallCertificate();
  certificate.version = der::Context(0, "\x1f" + der::Integer("\x02"));
  return certificate;
}

// An attribute type of 143 characters in dotted form.
Certificate LongDottedType() {
  std::string oid = "1.2";
  for (int i = 0; i < 14; ++i)
    oid += ".123456789";
  return SmallCertificate().Subject({{oid, "s"}});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_certificate_inputs FOLDER\n";
    return 2;
  }
  const std::pair<const char*, Certificate> inputs[] = {
      {"v3-ca", SmallCertificate().KeyUsage(4 | 2).Ca(true)},
      {"v3-end-entity", SmallCertificate().KeyUsage(128 | 32768).Ca(false)},
      {"v3-path-length",
       SmallCertificate().Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\x01")))},
      {"v1", Version1()},
      {"unique-ids", UniqueIds()},
      {"every-string-type", EveryStringType()},
      {"empty-names", EmptyNames()},
      {"ec-key", SmallCertificate().Ec()},
      {"generalized-times", GeneralizedTimes()},
      {"tolerated-encodings", ToleratedEncodings()},
      {"padded", Padded()},
      {"negative-integers", NegativeIntegers()},
      {"many-extensions", ManyExtensions()},
      {"name-in-primitive-form", NameInPrimitiveForm()},
      {"rdn-in-primitive-form", RdnInPrimitiveForm()},
      {"version-in-high-tag-form", VersionInHighTagForm()},
      {"long-dotted-type", LongDottedType()},
      {"number-sign-alone", SmallCertificate().Subject({{"CN", "#"}})},
  };
  for (const auto& [name, certificate] : inputs) {
    const std::string path = std::string(argv[1]) + "/" + name;
    std::ofstream file(path, std::ios::binary);
    file << certificate.Der();
    if (!file.flush()) {
      std::cerr << "make_certificate_inputs: cannot write " << path << "\n";
      return 1;
    }
  }
  return 0;
}
