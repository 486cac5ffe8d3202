// Every answer about one certificate, from either of two implementations of host/certificate.h.
#pragma once

#include <string>
#include <tuple>
#include <vector>

struct HostAnswers {
  struct Text {
    int code = 0;
    std::string text;

    bool operator==(const Text& other) const { return code == other.code && text == other.text; }
  };

  int parse_code = 0;
  // Not set if the certificate is refused.
  Text subject;
  std::vector<Text> subject_attrs;  // one per word
  std::vector<Text> issuer_attrs;
  int is_ca = 0;
  Text serial;
  Text key_usage;  // decimal
  Text exponent;
  Text modulus;  // has the same code as the exponent

  bool operator==(const HostAnswers& other) const {
    const auto all = [](const HostAnswers& answers) {
      return std::tie(answers.parse_code, answers.subject, answers.subject_attrs,
                      answers.issuer_attrs, answers.is_ca, answers.serial, answers.key_usage,
                      answers.exponent, answers.modulus);
    };
    return all(*this) == all(other);
  }
};

// AskOurs() queries the library of this project, AskOpenssl() the binding of libcrypto in
// examples/openssl_host.
HostAnswers AskOurs(const std::string& der, const std::vector<std::string>& words);
HostAnswers AskOpenssl(const std::string& der, const std::vector<std::string>& words);
