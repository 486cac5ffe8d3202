#include "host/certificate.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "host/x509/certificate_fields.h"
#include "host/x509/name_text.h"
#include "host/x509/names.h"

namespace x509 = cardcert::x509;

struct certificate {
  std::unique_ptr<unsigned char[]> der;  // null before a successful cert_parse()
  x509::CertificateFields fields;        // refers to `der`
};

namespace {

using x509::Bytes;
using x509::Reason;
using x509::Refusal;

const int kMaxInputSize = 1 << 20;
const int kAbsent = -2;  // the code for a missing extension or attribute

// Cards store certificates in files of fixed size and fill the rest with 00 or FF.
bool IsPadding(Bytes octets) {
  if (octets.size == 0)
    return true;
  const unsigned char filler = octets.data[0];
  if (filler != 0x00 && filler != 0xff)
    return false;
  // Every octet equals the one before it.
  return std::memcmp(octets.data, octets.data + 1, octets.size - 1) == 0;
}

// On failure `*cert` is unchanged.
Refusal Parse(Bytes input, certificate* cert) {
  x509::Cursor cursor(input);
  x509::Element outer;
  if (const Refusal refusal =
          ReadElement(&cursor, x509::kSequence, Reason::kCertificateType, &outer))
    return refusal;
  if (!IsPadding(cursor.Rest()))
    return Reason::kTrailingOctets;

  // The record needs its own copy, because the caller may free the input after the call. Its size
  // is that of an element that was read, not a length that the input merely claims.
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

// Succeeds if the record holds a certificate that can be queried.
Refusal CheckRecord(const certificate* cert) {
  if (cert == nullptr)
    return Reason::kInvalidArgument;
  return cert->der != nullptr ? Refusal() : Refusal(Reason::kNothingParsed);
}

// Ends a query for text: stores an empty text unless `code` is 0, and returns `code`.
int FinishText(int code, char* buffer, unsigned long size) {
  if (code != 0 && buffer != nullptr && size > 0)
    buffer[0] = '\0';
  return code;
}

// The code of cert_subject_attr() and cert_issuer_attr(), for the name in the field `name`.
int WriteAttribute(const certificate* cert, Bytes x509::CertificateFields::*name,
                   const char* attribute, char* buffer, unsigned long size) {
  if (const Refusal refusal = CheckRecord(cert))
    return refusal.Code();
  if (attribute == nullptr || buffer == nullptr)
    return Refusal(Reason::kInvalidArgument).Code();
  x509::Element value;
  if (!FindAttribute(cert->fields.*name, x509::AttributeWord(attribute), &value))
    return kAbsent;
  return WriteValue(value, buffer, size).Code();
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
  return FinishText(refusal.Code(), buffer, size);
}

int cert_subject_attr(const certificate* cert, const char* attribute, char* buffer,
                      unsigned long size) {
  const int code = WriteAttribute(cert, &x509::CertificateFields::subject, attribute, buffer, size);
  return FinishText(code, buffer, size);
}

int cert_issuer_attr(const certificate* cert, const char* attribute, char* buffer,
                     unsigned long size) {
  const int code = WriteAttribute(cert, &x509::CertificateFields::issuer, attribute, buffer, size);
  return FinishText(code, buffer, size);
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
  return text != nullptr ? text : "not a code of this library";
}
