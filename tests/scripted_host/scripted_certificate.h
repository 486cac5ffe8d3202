// The certificates of the scripted host: a line of text instead of DER. Words are separated by
// semicolons; the first is the name.
//
//   "A"                                  subject CN=A, commonName A, serial 01, not a CA, no key
//                                        usage extension, RSA key with an exponent of 3 and a
//                                        modulus of 256 bytes, issuer Example CA
//   "A;serial=00ab7f;ca=1;usage=128"     usage=absent: no extension (cert_key_usage returns -2)
//   "A;rsa=3:257"                        lengths of exponent and modulus in bytes
//   "A;subject=CN=A,O=X"                 text of the subject
//   "A;subject.organizationName=X"       attribute of the subject; likewise issuer.WORD
//   "A;fail.parse=1"                     result of cert_parse; likewise fail.subject,
//                                        fail.subject_attr, fail.issuer_attr, fail.is_ca,
//                                        fail.serial, fail.key_usage, fail.rsa
//   "A;fail.subject=1;partial.subject=X" text that the call writes before it fails; likewise
//                                        partial.subject_attr and partial.issuer_attr
//   "A;claim.serial=99999"               wrong length that the call reports; likewise
//                                        claim.exponent and claim.modulus
//   "A;usage=absent;claim.usage=0"       value that cert_key_usage stores, whatever it returns
#pragma once

#include <map>
#include <string>

namespace scripted_host {

class Certificate {
 public:
  // Returns false if the text does not have the form described above.
  bool Parse(const std::string& text);

  const std::string& name() const { return name_; }
  bool Has(const std::string& word) const { return words_.count(word) != 0; }
  // Returns the value of the word, or `otherwise` if it is missing.
  std::string Text(const std::string& word, const std::string& otherwise = std::string()) const;
  long Number(const std::string& word, long otherwise = 0) const;
  // Returns the result that the function must return, 0 by default.
  int Failure(const std::string& function) const {
    return static_cast<int>(Number("fail." + function));
  }
  std::string serial() const;  // As bytes.

 private:
  std::string name_ = "?";
  std::map<std::string, std::string> words_;
};

}  // namespace scripted_host
