#include "host/x509/public_key.h"

#include "host/x509/values.h"

namespace cardcert::x509 {

namespace {

// rsaEncryption, 1.2.840.113549.1.1.1
const unsigned char kRsaEncryptionOid[] = {0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01};

// RFC 8017 3.1: modulus and exponent are positive integers.
Refusal ReadPositive(Cursor* cursor, Bytes* out) {
  Element element;
  if (const Refusal refusal = ReadElement(cursor, kInteger, Reason::kRsaIntegerType, &element))
    return refusal;
  if (const Refusal refusal = CheckInteger(element.value))
    return refusal;
  Bytes value = element.value;
  if ((value.data[0] & 0x80U) != 0)
    return Reason::kRsaNotPositive;
  // CheckInteger() leaves at most one leading zero octet.
  if (value.data[0] == 0)
    value = Bytes{value.data + 1, value.size - 1};
  if (value.size == 0)
    return Reason::kRsaNotPositive;
  *out = value;
  return {};
}

}  // namespace

Refusal ReadAlgorithm(Cursor* cursor, Algorithm* out) {
  Element algorithm;
  if (const Refusal refusal = ReadElement(cursor, kSequence, Reason::kAlgorithmType, &algorithm))
    return refusal;
  Cursor fields(algorithm.value);
  Element oid;
  if (const Refusal refusal = ReadElement(&fields, kOid, Reason::kAlgorithmOidType, &oid))
    return refusal;
  if (const Refusal refusal = CheckOid(oid.value))
    return refusal;
  out->tlv = algorithm.tlv;
  out->oid = oid.value;
  if (fields.AtEnd())
    return {};
  if (const Refusal refusal = ReadElement(&fields, &out->parameters))
    return refusal;
  if (const Refusal refusal = CheckOpaque(out->parameters))
    return refusal;
  return ExpectEnd(fields, Reason::kAlgorithmTrailing);
}

Refusal ReadPublicKey(Cursor* cursor, PublicKey* out) {
  Element info;
  if (const Refusal refusal = ReadElement(cursor, kSequence, Reason::kKeyInfoType, &info))
    return refusal;
  Cursor fields(info.value);
  if (const Refusal refusal = ReadAlgorithm(&fields, &out->algorithm))
    return refusal;
  Element key;
  if (const Refusal refusal = ReadElement(&fields, kBitString, Reason::kKeyType, &key))
    return refusal;
  BitString bits;
  if (const Refusal refusal = ReadBitString(key.value, &bits))
    return refusal;
  if (bits.num_unused_bits != 0)
    return Reason::kKeyUnusedBits;
  out->key = bits.octets;
  return ExpectEnd(fields, Reason::kKeyInfoTrailing);
}

Refusal ReadRsaPublicKey(const PublicKey& key, RsaPublicKey* out) {
  if (key.algorithm.oid != Bytes{kRsaEncryptionOid, sizeof kRsaEncryptionOid})
    return Reason::kNotRsa;
  // RFC 3279 2.3.1 requires NULL, but keys in use omit it.
  const unsigned char parameters_tag = key.algorithm.parameters.tag;
  if (parameters_tag != 0 && parameters_tag != kNull)
    return Reason::kRsaParameters;

  Cursor outer(key.key);
  Element sequence;
  if (const Refusal refusal = ReadElement(&outer, kSequence, Reason::kRsaKeyType, &sequence))
    return refusal;
  if (const Refusal refusal = ExpectEnd(outer, Reason::kRsaKeyTrailing))
    return refusal;
  Cursor fields(sequence.value);
  if (const Refusal refusal = ReadPositive(&fields, &out->modulus))
    return refusal;
  if (const Refusal refusal = ReadPositive(&fields, &out->exponent))
    return refusal;
  return ExpectEnd(fields, Reason::kRsaKeyTrailing);
}

}  // namespace cardcert::x509
