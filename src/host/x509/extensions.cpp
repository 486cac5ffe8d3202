#include "host/x509/extensions.h"

#include <algorithm>
#include <memory>
#include <new>

#include "host/x509/values.h"

namespace cardcert::x509 {

namespace {

const unsigned char kBasicConstraintsOid[] = {0x55, 0x1d, 0x13};  // 2.5.29.19
const unsigned char kKeyUsageOid[] = {0x55, 0x1d, 0x0f};          // 2.5.29.15

struct Extension {
  Bytes oid;
  Bytes value;
};

Refusal ReadExtension(Cursor* cursor, Extension* out) {
  Element extension;
  if (const Refusal refusal = ReadElement(cursor, kSequence, Reason::kExtensionType, &extension))
    return refusal;
  Cursor fields(extension.value);
  Element oid;
  if (const Refusal refusal = ReadElement(&fields, kOid, Reason::kExtensionOidType, &oid))
    return refusal;
  if (const Refusal refusal = CheckOid(oid.value))
    return refusal;
  if (NextIs(fields, kBoolean)) {
    Element critical;
    bool ignored = false;
    if (const Refusal refusal = ReadElement(&fields, &critical))
      return refusal;
    // Tolerated: an encoded critical=FALSE, although DER omits default values (X.690 11.5).
    // Certificates in use have it.
    if (const Refusal refusal = ReadBoolean(critical.value, &ignored))
      return refusal;
  }
  Element value;
  if (const Refusal refusal =
          ReadElement(&fields, kOctetString, Reason::kExtensionValueType, &value))
    return refusal;
  *out = Extension{oid.value, value.value};
  return ExpectEnd(fields, Reason::kExtensionTrailing);
}

// Any strict order will do: sorting only has to make equal identifiers adjacent.
bool Before(Bytes a, Bytes b) {
  if (a.size != b.size)
    return a.size < b.size;
  return std::memcmp(a.data, b.data, a.size) < 0;
}

// RFC 5280 4.2: "A certificate MUST NOT include more than one instance of a particular extension."
// Sorts, because comparing all pairs would take quadratic time. `list` must hold `num_extensions`
// well-formed extensions.
Refusal CheckNoDuplicates(Bytes list, std::size_t num_extensions) {
  const std::size_t kNumInPlace = 32;
  Bytes in_place[kNumInPlace];
  std::unique_ptr<Bytes[]> allocated;
  Bytes* oids = in_place;
  if (num_extensions > kNumInPlace) {
    allocated.reset(new (std::nothrow) Bytes[num_extensions]);
    if (allocated == nullptr)
      return Reason::kOutOfMemory;
    oids = allocated.get();
  }

  Cursor cursor(list);
  Refusal refusal;
  for (std::size_t i = 0; !refusal && i < num_extensions; ++i) {
    Extension extension;
    refusal = ReadExtension(&cursor, &extension);
    oids[i] = extension.oid;
  }
  std::sort(oids, oids + num_extensions, Before);
  if (!refusal && std::adjacent_find(oids, oids + num_extensions) != oids + num_extensions)
    refusal = Reason::kExtensionDuplicate;
  return refusal;
}

}  // namespace

Refusal ReadExtensions(Bytes value, Extensions* out) {
  Cursor outer(value);
  Element list;
  if (const Refusal refusal = ReadElement(&outer, kSequence, Reason::kExtensionsType, &list))
    return refusal;
  if (const Refusal refusal = ExpectEnd(outer, Reason::kExtensionsTrailing))
    return refusal;
  if (list.value.size == 0)
    return Reason::kExtensionsEmpty;  // RFC 5280 4.1: "SEQUENCE SIZE (1..MAX) OF Extension"

  Cursor cursor(list.value);
  std::size_t num_extensions = 0;
  while (!cursor.AtEnd()) {
    Extension extension;
    if (const Refusal refusal = ReadExtension(&cursor, &extension))
      return refusal;
    ++num_extensions;
    if (extension.oid == Bytes{kBasicConstraintsOid, sizeof kBasicConstraintsOid})
      out->basic_constraints = extension.value;
    else if (extension.oid == Bytes{kKeyUsageOid, sizeof kKeyUsageOid})
      out->key_usage = extension.value;
  }
  return CheckNoDuplicates(list.value, num_extensions);
}

Refusal ReadBasicConstraints(Bytes extn_value, bool* is_ca) {
  Cursor outer(extn_value);
  Element constraints;
  if (const Refusal refusal =
          ReadElement(&outer, kSequence, Reason::kBasicConstraintsType, &constraints))
    return refusal;
  if (const Refusal refusal = ExpectEnd(outer, Reason::kBasicConstraintsTrailing))
    return refusal;

  bool ca = false;
  Cursor fields(constraints.value);
  if (NextIs(fields, kBoolean)) {
    Element flag;
    if (const Refusal refusal = ReadElement(&fields, &flag))
      return refusal;
    // Tolerated: an encoded cA=FALSE, although DER omits default values (X.690 11.5). Certificates
    // in use have it.
    if (const Refusal refusal = ReadBoolean(flag.value, &ca))
      return refusal;
  }
  if (!fields.AtEnd()) {
    Element path_length;
    if (const Refusal refusal =
            ReadElement(&fields, kInteger, Reason::kPathLengthType, &path_length))
      return refusal;
    if (const Refusal refusal = CheckInteger(path_length.value))
      return refusal;
    // RFC 5280 4.2.1.9: "INTEGER (0..MAX)"
    if ((path_length.value.data[0] & 0x80U) != 0)
      return Reason::kPathLengthNegative;
  }
  if (const Refusal refusal = ExpectEnd(fields, Reason::kBasicConstraintsTrailing))
    return refusal;
  *is_ca = ca;
  return {};
}

Refusal ReadKeyUsage(Bytes extn_value, int* usage) {
  Cursor outer(extn_value);
  Element element;
  if (const Refusal refusal = ReadElement(&outer, kBitString, Reason::kKeyUsageType, &element))
    return refusal;
  if (const Refusal refusal = ExpectEnd(outer, Reason::kKeyUsageTrailing))
    return refusal;
  // Tolerated: trailing zero bits, although DER removes them from a named bit list (X.690 11.2.2).
  // Certificates in use have them, including two roots of public trust stores.
  BitString bits;
  if (const Refusal refusal = ReadBitString(element.value, &bits))
    return refusal;

  // Only nine bits have names; X.680 22 permits further ones, which are ignored. An empty bit
  // string differs from a missing extension: it permits no usage at all.
  const unsigned first = bits.octets.size > 0 ? bits.octets.data[0] : 0U;
  const unsigned second = bits.octets.size > 1 ? bits.octets.data[1] & 0x80U : 0U;
  *usage = static_cast<int>(first | second << 8);
  return {};
}

}  // namespace cardcert::x509
