// Compiled twice: unchanged, and with every name of host/certificate.h renamed for libcrypto.
#include "ask_host.h"

#include <memory>

#include "host/certificate.h"

HostAnswers ASK_HOST(const std::string& der, const std::vector<std::string>& words) {
  HostAnswers answers;
  const std::unique_ptr<certificate, void (*)(certificate*)> owner(cert_alloc(), cert_free);
  certificate* const cert = owner.get();
  // A heap copy of the exact size lets AddressSanitizer detect reads beyond the end.
  const std::unique_ptr<unsigned char[]> octets(new unsigned char[der.size()]);
  der.copy(reinterpret_cast<char*>(octets.get()), der.size());
  answers.parse_code = cert_parse(octets.get(), static_cast<int>(der.size()), cert);
  if (answers.parse_code != 0)
    return answers;

  std::vector<char> buffer(16834);
  auto* const octet_buffer = reinterpret_cast<unsigned char*>(buffer.data());
  answers.subject.code = cert_subject(cert, buffer.data(), buffer.size());
  answers.subject.text = buffer.data();
  for (const std::string& word : words) {
    const int subject_code = cert_subject_attr(cert, word.c_str(), buffer.data(), 1024);
    answers.subject_attrs.push_back({subject_code, buffer.data()});
    const int issuer_code = cert_issuer_attr(cert, word.c_str(), buffer.data(), 1024);
    answers.issuer_attrs.push_back({issuer_code, buffer.data()});
  }
  answers.is_ca = cert_is_ca(cert);

  unsigned long length = buffer.size();
  answers.serial.code = cert_serial(cert, octet_buffer, &length);
  if (answers.serial.code == 0)
    answers.serial.text.assign(buffer.data(), length);

  int usage = 0;
  answers.key_usage.code = cert_key_usage(cert, &usage);
  answers.key_usage.text = std::to_string(usage);

  unsigned char exponent[17] = {};
  unsigned long exponent_len = sizeof exponent;
  unsigned long modulus_len = 8193;
  answers.exponent.code =
      cert_rsa_public_key_components(cert, exponent, &exponent_len, octet_buffer, &modulus_len);
  answers.modulus.code = answers.exponent.code;
  if (answers.exponent.code == 0) {
    answers.exponent.text.assign(reinterpret_cast<const char*>(exponent), exponent_len);
    answers.modulus.text.assign(buffer.data(), modulus_len);
  }
  return answers;
}
