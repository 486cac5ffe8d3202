#include "host/certificate.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "host/x509/certificate_fields.h"
#include "host/x509/names.h"

namespace x509 = cardcert::x509;

struct certificate {
  std::unique_ptr<unsigned char[]> der;  // null as long as nothing is parsed
  x509::CertificateFields fields;        // views of it
};

namespace {

using x509::Bytes;
using x509::Reason;
using x509::Refusal;

const int kMaxInputSize = 1 << 20;
const int kAbsent = -2;  // what callers single out: no such extension, no such attribute

// Cards hold certificates in files of fixed size and fill them up.
bool IsPadding(Bytes octets) {
  if (octets.size == 0)
    return true;
  const unsigned char filler = octets.data[0];
  if (filler != 0x00 && filler != 0xff)
    return false;
  // Each octet equals the one before it.
  return std::memcmp(octets.data, octets.data + 1, octets.size - 1) == 0;
}

Refusal Parse(Bytes input, certificate* cert) {
  x509::Cursor cursor(input);
  x509::Element outer;
  if (const Refusal refusal =
          ReadElement(&cursor, x509::kSequence, Reason::kCertificateType, &outer))
    return refusal;
  if (!IsPadding(cursor.Rest()))
    return Reason::kTrailingOctets;

  // The caller's octets may be gone after the call. What is copied is there, not only claimed.
  certificate parsed;
  parsed.der.reset(new (std::nothrow) unsigned char[outer.tlv.size]);
  if (parsed.der == nullptr)
    return Reason::kOutOfMemory;
  std::memcpy(parsed.der.get(), outer.tlv.data, outer.tlv.size);
  const std::size_t header_size = outer.tlv.size - outer.value.size;
  const Bytes value{parsed.der.get() + header_size, outer.value.size};
  if (const Refusal refusal = ReadCertificate(value, &parsed.fields))
    return refusal;

  *cert = std::move(parsed);
  return {};
}

// Whether a question can be asked at all.
Refusal CheckRecord(const certificate* cert) {
  if (cert == nullptr)
    return Reason::kInvalidArgument;
  return cert->der != nullptr ? Refusal() : Refusal(Reason::kNothingParsed);
}

// The answer of a question for text: on a refusal the text is empty.
int AnswerText(Refusal refusal, char* buffer, unsigned long size) {
  if (refusal && buffer != nullptr && size > 0)
    buffer[0] = '\0';
  return refusal.Code();
}

int NameAttribute(Bytes name, const char* attribute, char* buffer, unsigned long size) {
  x509::Element value;
  if (!FindAttribute(name, x509::AttributeWord(attribute), &value)) {
    if (size > 0)
      buffer[0] = '\0';
    return kAbsent;
  }
  return AnswerText(WriteValue(value, buffer, size), buffer, size);
}

}  // namespace

certificate* cert_alloc() {
  return new (std::nothrow) certificate;
}

void cert_free(certificate* cert) {
  delete cert;
}

int cert_parse(const unsigned char* der, int length, certificate* cert) {
  if (cert == nullptr || length < 0 || (der == nullptr && length > 0))
    return Refusal(Reason::kInvalidArgument).Code();
  if (length > kMaxInputSize)
    return Refusal(Reason::kInputTooLarge).Code();
  return Parse(Bytes{der, static_cast<std::size_t>(length)}, cert).Code();
}

int cert_subject(const certificate* cert, char* buffer, unsigned long size) {
  Refusal refusal = CheckRecord(cert);
  if (!refusal && buffer == nullptr)
    refusal = Reason::kInvalidArgument;
  if (!refusal)
    refusal = WriteName(cert->fields.subject, buffer, size);
  return AnswerText(refusal, buffer, size);
}

int cert_subject_attr(const certificate* cert, const char* attribute, char* buffer,
                      unsigned long size) {
  Refusal refusal = CheckRecord(cert);
  if (!refusal && (attribute == nullptr || buffer == nullptr))
    refusal = Reason::kInvalidArgument;
  if (refusal)
    return AnswerText(refusal, buffer, size);
  return NameAttribute(cert->fields.subject, attribute, buffer, size);
}

int cert_issuer_attr(const certificate* cert, const char* attribute, char* buffer,
                     unsigned long size) {
  Refusal refusal = CheckRecord(cert);
  if (!refusal && (attribute == nullptr || buffer == nullptr))
    refusal = Reason::kInvalidArgument;
  if (refusal)
    return AnswerText(refusal, buffer, size);
  return NameAttribute(cert->fields.issuer, attribute, buffer, size);
}

int cert_is_ca(const certificate* cert) {
  if (const Refusal refusal = CheckRecord(cert))
    return -refusal.Code();
  const x509::Extensions& extensions = cert->fields.extensions;
  if (!extensions.basic_constraints)
    return 0;
  bool is_ca = false;
  if (const Refusal refusal = ReadBasicConstraints(*extensions.basic_constraints, &is_ca))
    return -refusal.Code();
  return is_ca ? 1 : 0;
}

int cert_serial(const certificate* cert, unsigned char* buffer, unsigned long* length) {
  if (const Refusal refusal = CheckRecord(cert))
    return refusal.Code();
  if (buffer == nullptr || length == nullptr)
    return Refusal(Reason::kInvalidArgument).Code();
  const Bytes serial = cert->fields.serial;
  if (serial.size > *length)
    return Refusal(Reason::kBufferTooSmall).Code();
  std::memcpy(buffer, serial.data, serial.size);
  *length = serial.size;
  return 0;
}

int cert_key_usage(const certificate* cert, int* usage) {
  if (usage == nullptr)
    return Refusal(Reason::kInvalidArgument).Code();
  *usage = 0;
  if (const Refusal refusal = CheckRecord(cert))
    return refusal.Code();
  const x509::Extensions& extensions = cert->fields.extensions;
  if (!extensions.key_usage) {
    *usage = -1;
    return kAbsent;
  }
  return ReadKeyUsage(*extensions.key_usage, usage).Code();
}

int cert_rsa_public_key_components(const certificate* cert, unsigned char* exponent,
                                   unsigned long* exponent_len, unsigned char* modulus,
                                   unsigned long* modulus_len) {
  if (const Refusal refusal = CheckRecord(cert))
    return refusal.Code();
  if (exponent == nullptr || exponent_len == nullptr || modulus == nullptr ||
      modulus_len == nullptr)
    return Refusal(Reason::kInvalidArgument).Code();
  x509::RsaPublicKey key;
  if (const Refusal refusal = ReadRsaPublicKey(cert->fields.public_key, &key))
    return refusal.Code();
  if (key.exponent.size > *exponent_len || key.modulus.size > *modulus_len)
    return Refusal(Reason::kBufferTooSmall).Code();
  std::memcpy(exponent, key.exponent.data, key.exponent.size);
  *exponent_len = key.exponent.size;
  std::memcpy(modulus, key.modulus.data, key.modulus.size);
  *modulus_len = key.modulus.size;
  return 0;
}

const char* cert_error_text(int code) {
  if (code == 0)
    return "success";
  if (code == kAbsent)
    return "the certificate has no such attribute or extension";
  const char* const text = x509::ReasonText(code < 0 && code > -1000 ? -code : code);
  return text != nullptr ? text : "no code of this library";
}
