// Our certificate library.
#include "answers.h"
#include "host/certificate.h"

namespace {

// An absent attribute or extension is an answer, too.
bool IsAnswered(int code) {
  const int kAbsent = -2;
  return code == 0 || code == kAbsent;
}

bool AskAll(const certificate* cert, Answers* answers) {
  if (cert_subject(cert, answers->subject, sizeof answers->subject) != 0)
    return false;
  if (!IsAnswered(cert_subject_attr(cert, "CN", answers->subject_common_name,
                                    sizeof answers->subject_common_name)) ||
      !IsAnswered(cert_subject_attr(cert, "O", answers->subject_organization,
                                    sizeof answers->subject_organization)) ||
      !IsAnswered(cert_issuer_attr(cert, "CN", answers->issuer_common_name,
                                   sizeof answers->issuer_common_name)) ||
      !IsAnswered(cert_issuer_attr(cert, "O", answers->issuer_organization,
                                   sizeof answers->issuer_organization)))
    return false;

  const int is_ca = cert_is_ca(cert);
  answers->is_ca = is_ca > 0;
  answers->serial_len = sizeof answers->serial;
  if (is_ca < 0 || cert_serial(cert, answers->serial, &answers->serial_len) != 0 ||
      !IsAnswered(cert_key_usage(cert, &answers->key_usage)))
    return false;

  answers->exponent_len = sizeof answers->exponent;
  answers->modulus_len = sizeof answers->modulus;
  if (cert_rsa_public_key_components(cert, answers->exponent, &answers->exponent_len,
                                     answers->modulus, &answers->modulus_len) != 0)
    answers->exponent_len = answers->modulus_len = 0;
  return true;
}

}  // namespace

bool AskCardcert(const std::string& der, Answers* answers) {
  certificate* const cert = cert_alloc();
  const bool done =
      cert_parse(OctetsOf(der), static_cast<int>(der.size()), cert) == 0 && AskAll(cert, answers);
  cert_free(cert);
  return done;
}
