// Public keys: SubjectPublicKeyInfo (RFC 5280 4.1.2.7) and RSAPublicKey (RFC 8017 A.1.1).
#pragma once

#include "host/x509/der.h"

namespace cardcert::x509 {

// The two functions that take a cursor move it past the element that they read. On failure they may
// have moved it, and `*out` is unspecified. All views refer to the octets that were read.

// AlgorithmIdentifier (RFC 5280 4.1.1.2).
struct Algorithm {
  Bytes tlv;           // the whole element, with tag and length
  Bytes oid;           // the contents of the OBJECT IDENTIFIER
  Element parameters;  // has the tag 0 if they are absent
};
Refusal ReadAlgorithm(Cursor* cursor, Algorithm* out);

// SubjectPublicKeyInfo.
struct PublicKey {
  Algorithm algorithm;
  Bytes key;  // the contents of the BIT STRING, in the form that the algorithm defines
};
Refusal ReadPublicKey(Cursor* cursor, PublicKey* out);

// Unsigned big-endian values without leading zero octets. Neither is empty.
struct RsaPublicKey {
  Bytes modulus;
  Bytes exponent;
};
// Fails with kNotRsa for a key of any other algorithm than rsaEncryption. On failure `*out` is
// unspecified.
Refusal ReadRsaPublicKey(const PublicKey& key, RsaPublicKey* out);

}  // namespace cardcert::x509
