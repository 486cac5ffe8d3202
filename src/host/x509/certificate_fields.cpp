#include "host/x509/certificate_fields.h"

#include "host/x509/names.h"
#include "host/x509/values.h"

namespace cardcert::x509 {

namespace {

// RFC 5280 4.1.2.1: [0] EXPLICIT INTEGER DEFAULT v1. The encoded value is the version minus 1.
Refusal ReadVersion(Cursor* tbs, int* out) {
  *out = 1;
  if (!NextIs(*tbs, kContext0))
    return {};
  Element outer;
  if (const Refusal refusal = ReadElement(tbs, &outer))
    return refusal;
  Cursor fields(outer.value);
  Element version;
  if (const Refusal refusal = ReadElement(&fields, kInteger, Reason::kVersionType, &version))
    return refusal;
  if (const Refusal refusal = ExpectEnd(fields, Reason::kVersionTrailing))
    return refusal;
  if (const Refusal refusal = CheckInteger(version.value))
    return refusal;
  if (version.value.size > 1 || version.value.data[0] > 2)
    return Reason::kVersionUnknown;
  // X.690 11.5: "shall not include an encoding for any component value which is equal to its
  // default value"
  if (version.value.data[0] == 0)
    return Reason::kVersionDefault;
  *out = version.value.data[0] + 1;
  return {};
}

// RFC 5280 4.1.2.2 requires a positive number of up to 20 octets. Certificates in use break this
// rule, so any INTEGER is accepted and returned as encoded.
Refusal ReadSerial(Cursor* tbs, Bytes* out) {
  Element serial;
  if (const Refusal refusal = ReadElement(tbs, kInteger, Reason::kSerialType, &serial))
    return refusal;
  *out = serial.value;
  return CheckInteger(serial.value);
}

Refusal ReadName(Cursor* tbs, Bytes* out) {
  Element name;
  if (const Refusal refusal = ReadElement(tbs, kSequence, Reason::kNameType, &name))
    return refusal;
  *out = name.value;
  return CheckName(name.value);
}

Refusal SkipTime(Cursor* validity) {
  Element time;
  const Tag tag = NextIs(*validity, kUtcTime) ? kUtcTime : kGeneralizedTime;
  if (const Refusal refusal = ReadElement(validity, tag, Reason::kTimeType, &time))
    return refusal;
  return CheckTime(time);
}

// RFC 5280 4.1.2.5. The times are not used, but they are checked, so that no other parser reads the
// same octets differently.
Refusal SkipValidity(Cursor* tbs) {
  Element validity;
  if (const Refusal refusal = ReadElement(tbs, kSequence, Reason::kValidityType, &validity))
    return refusal;
  Cursor fields(validity.value);
  if (const Refusal refusal = SkipTime(&fields))
    return refusal;
  if (const Refusal refusal = SkipTime(&fields))
    return refusal;
  return ExpectEnd(fields, Reason::kValidityTrailing);
}

// RFC 5280 4.1.2.8: an optional IMPLICIT BIT STRING, only in versions 2 and 3.
Refusal SkipUniqueId(Cursor* tbs, Tag tag, int version) {
  if (NextIsInOtherForm(*tbs, tag))
    return Reason::kConstructed;
  if (!NextIs(*tbs, tag))
    return {};
  if (version == 1)
    return Reason::kUniqueIdInV1;
  Element unique_id;
  BitString ignored;
  if (const Refusal refusal = ReadElement(tbs, &unique_id))
    return refusal;
  return ReadBitString(unique_id.value, &ignored);
}

// RFC 5280 4.1.2.9: [3] EXPLICIT, only in version 3.
Refusal ReadOptionalExtensions(Cursor* tbs, int version, Extensions* out) {
  if (!NextIs(*tbs, kContext3))
    return {};
  if (version != 3)
    return Reason::kExtensionsVersion;
  Element outer;
  if (const Refusal refusal = ReadElement(tbs, &outer))
    return refusal;
  return ReadExtensions(outer.value, out);
}

// RFC 5280 4.1.2.
Refusal ReadTbsCertificate(Bytes value, Algorithm* signature_algorithm, CertificateFields* out) {
  Cursor tbs(value);
  int version = 0;
  if (const Refusal refusal = ReadVersion(&tbs, &version))
    return refusal;
  if (const Refusal refusal = ReadSerial(&tbs, &out->serial))
    return refusal;
  if (const Refusal refusal = ReadAlgorithm(&tbs, signature_algorithm))
    return refusal;
  if (const Refusal refusal = ReadName(&tbs, &out->issuer))
    return refusal;
  if (const Refusal refusal = SkipValidity(&tbs))
    return refusal;
  if (const Refusal refusal = ReadName(&tbs, &out->subject))
    return refusal;
  if (const Refusal refusal = ReadPublicKey(&tbs, &out->public_key))
    return refusal;
  if (const Refusal refusal = SkipUniqueId(&tbs, kContext1Primitive, version))
    return refusal;
  if (const Refusal refusal = SkipUniqueId(&tbs, kContext2Primitive, version))
    return refusal;
  if (const Refusal refusal = ReadOptionalExtensions(&tbs, version, &out->extensions))
    return refusal;
  return ExpectEnd(tbs, Reason::kTbsTrailing);
}

// RFC 5280 4.1.1.3. Checks the form of the signature only; nothing is verified.
Refusal SkipSignature(Cursor* certificate) {
  Element signature;
  if (const Refusal refusal =
          ReadElement(certificate, kBitString, Reason::kSignatureType, &signature))
    return refusal;
  BitString bits;
  if (const Refusal refusal = ReadBitString(signature.value, &bits))
    return refusal;
  return bits.num_unused_bits == 0 ? Refusal() : Refusal(Reason::kSignatureUnusedBits);
}

}  // namespace

Refusal ReadCertificate(Bytes certificate_value, CertificateFields* out) {
  Cursor certificate(certificate_value);
  Element tbs;
  if (const Refusal refusal = ReadElement(&certificate, kSequence, Reason::kTbsType, &tbs))
    return refusal;
  Algorithm signed_algorithm;
  if (const Refusal refusal = ReadTbsCertificate(tbs.value, &signed_algorithm, out))
    return refusal;
  Algorithm outer_algorithm;
  if (const Refusal refusal = ReadAlgorithm(&certificate, &outer_algorithm))
    return refusal;
  if (const Refusal refusal = SkipSignature(&certificate))
    return refusal;
  if (const Refusal refusal = ExpectEnd(certificate, Reason::kCertificateTrailing))
    return refusal;
  // RFC 5280 4.1.1.2: the outer field "MUST contain the same algorithm identifier as the signature
  // field". Compared as a whole with the parameters, because the outer one is not signed.
  if (signed_algorithm.tlv != outer_algorithm.tlv)
    return Reason::kAlgorithmsDiffer;
  return {};
}

}  // namespace cardcert::x509
