#include "host/x509/certificate_fields.h"

#include "host/x509/names.h"
#include "host/x509/values.h"

namespace cardcert::x509 {

namespace {

// RFC 5280 4.1.2.1: [0] EXPLICIT INTEGER DEFAULT v1, where 0 stands for version 1.
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

// RFC 5280 4.1.2.2 asks for positive numbers of up to 20 octets; certificates in use have others,
// and whoever compares serials compares these octets.
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

// RFC 5280 4.1.2.5. Nothing here asks for the times, but two readers must not differ over them.
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

// RFC 5280 4.1.2.8: an IMPLICIT BIT STRING; in version 2 and 3 only.
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

// RFC 5280 4.1.2.9: [3] EXPLICIT; in version 3 only.
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

// RFC 5280 4.1.1.3. Not verified here; only what can be told from its form is checked.
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
  // field". Compared whole, parameters included: the outer one is not signed.
  if (signed_algorithm.tlv != outer_algorithm.tlv)
    return Reason::kAlgorithmsDiffer;
  return {};
}

}  // namespace cardcert::x509
