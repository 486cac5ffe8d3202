// The certificates of the scripted host: a line of text in the place of DER. Words are separated by
// semicolons; the first is the name.
//
//   "A"                                  subject CN=A, commonName A, serial 01, no CA, no key usage
//                                        extension, RSA key of 3 and 256 bytes, issuer Example CA
//   "A;serial=00ab7f;ca=1;usage=128"     usage=absent: no extension (the call answers -2)
//   "A;rsa=3:257"                        lengths of exponent and modulus
//   "A;subject=CN=A,O=X"                 the subject text
//   "A;subject.organizationName=X"       an attribute of the subject; issuer.WORD of the issuer
//   "A;fail.parse=1"                     the result of cert_parse; likewise fail.subject,
//                                        fail.subject_attr, fail.issuer_attr, fail.is_ca,
//                                        fail.serial, fail.key_usage, fail.rsa
//   "A;fail.subject=1;partial.subject=X" what the call writes before it fails; likewise
//                                        partial.subject_attr and partial.issuer_attr
//   "A;claim.serial=99999"               a length that is a lie; likewise claim.exponent and
//                                        claim.modulus
//   "A;usage=absent;claim.usage=0"       what cert_key_usage stores, whatever it answers
#pragma once

#include <map>
#include <string>

namespace scripted_host {

class Certificate {
 public:
  // False for anything but a text as above.
  bool Parse(const std::string& text);

  const std::string& name() const { return name_; }
  bool Has(const std::string& word) const { return words_.count(word) != 0; }
  // The word's value, or `otherwise`.
  std::string Text(const std::string& word, const std::string& otherwise = std::string()) const;
  long Number(const std::string& word, long otherwise = 0) const;
  // The result that a function is to answer; 0 unless there is a word for it.
  int Failure(const std::string& function) const {
    return static_cast<int>(Number("fail." + function));
  }
  std::string serial() const;  // Bytes.

 private:
  std::string name_ = "?";
  std::map<std::string, std::string> words_;
};

}  // namespace scripted_host
