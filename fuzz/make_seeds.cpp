// Writes the seeds of the certificate fuzzers: small certificates, one for each shape that the
// reader tells apart. And the findings that can be described. Usage: make_seeds FUZZ_FOLDER
#include <fstream>
#include <iostream>

#include "support/der_writer.h"

namespace {

using der::Certificate;

// A certificate as small as can be: the fuzzer finds out more in a second with less to change.
Certificate Small() {
  Certificate certificate;
  certificate.Issuer({{"CN", "i"}}).Subject({{"CN", "s"}}).Rsa("\xc1\x01", {1, 0, 1});
  certificate.signature = der::BitString("s");
  return certificate;
}

std::string OfEveryString() {
  std::string rdns;
  for (const int tag : {0x0c, 0x12, 0x13, 0x14, 0x16})
    rdns += der::Set(der::Attribute("O", der::Tlv(tag, "1")));
  rdns += der::Set(der::Attribute("OU", der::Tlv(0x1c, std::string({0, 0, 0x20, '\xac'}))));
  rdns += der::Set(der::Attribute("CN", der::Tlv(0x1e, std::string({0x20, '\xac'}))));
  rdns += der::Set(der::Attribute("2.5.4.45", der::BitString("\xa0", 5)));
  rdns += der::Set(der::Attribute("2.5.4.16", der::Sequence(der::Utf8("a"), der::Utf8("b"))));
  rdns += der::Set(der::Attribute("C", der::Printable("XX")), der::Attribute("L", der::Utf8("l")));
  rdns += der::Set(der::Attribute("1.2.3.4", der::Utf8(" #,+\"\\<>;=\n ")));
  return der::Sequence(rdns);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_seeds FUZZ_FOLDER\n";
    return 2;
  }
  const auto write = [&](const std::string& name, const std::string& der) {
    std::ofstream(std::string(argv[1]) + "/" + name + ".der", std::ios::binary) << der;
  };

  write("seeds/certificate/v3-ca", Small().KeyUsage(4 | 2).Ca(true).Der());
  write("seeds/certificate/v3-end-entity", Small().KeyUsage(128 | 32768).Ca(false).Der());
  write("seeds/certificate/v3-path-length",
        Small().Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\x01"))).Der());
  Certificate v1 = Small();
  v1.version = "";
  write("seeds/certificate/v1", v1.Der());
  Certificate unique_ids = Small();
  unique_ids.issuer_unique_id = der::Tlv(0x81, std::string({0, 'i'}));
  unique_ids.subject_unique_id = der::Tlv(0x82, std::string({0, 's'}));
  write("seeds/certificate/unique-ids", unique_ids.Ca(true).Der());
  Certificate strings = Small();
  strings.subject = OfEveryString();
  write("seeds/certificate/every-string", strings.Der());
  Certificate empty = Small();
  empty.subject = empty.issuer = der::Sequence();
  write("seeds/certificate/empty-names", empty.Der());
  write("seeds/certificate/ec-key", Small().Ec().Der());
  Certificate generalized = Small();
  generalized.validity =
      der::Sequence(der::Generalized("20500101000000Z"), der::Generalized("99991231235959Z"));
  write("seeds/certificate/generalized-time", generalized.Der());
  Certificate tolerated = Small();
  tolerated.Add(der::BasicConstraints(der::Boolean(0)));
  tolerated.Add(
      der::Extension("2.5.29.15", der::BitString(std::string({6, 0}), 0), der::Boolean(0)));
  tolerated.Add(der::Extension("2.5.29.37", "x", der::Boolean(1)));
  write("seeds/certificate/tolerated", tolerated.Der());
  Certificate padded = Small();
  padded.padding = std::string(16, '\0');
  write("seeds/certificate/padded", padded.Der());
  Certificate negative = Small();
  negative.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", ""),
                                       der::Sequence(der::Integer("\xc1"), der::Integer("\x81")));
  write("seeds/certificate/negative-key", negative.Serial("\x80").Der());
  Certificate many = Small();
  for (int i = 0; i < 40; ++i)
    many.Add(der::Extension("1.2." + std::to_string(i), ""));
  write("seeds/certificate/many-extensions", many.Der());

  Certificate primitive_name = Small();
  primitive_name.subject[0] = 0x10;
  write("findings/certificate/name-in-primitive-form", primitive_name.Der());
  Certificate primitive_rdn = Small();
  primitive_rdn.subject[2] = 0x11;
  write("findings/certificate/rdn-in-primitive-form", primitive_rdn.Der());
  Certificate high_tag_form = Small();
  high_tag_form.version = der::Context(0, "\x1f" + der::Integer("\x02"));
  write("findings/certificate/version-with-high-tag-form", high_tag_form.Der());
  write("findings/certificate/number-sign-alone", Small().Subject({{"CN", "#"}}).Der());
  return 0;
}
