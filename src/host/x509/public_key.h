// Public keys: SubjectPublicKeyInfo (RFC 5280 4.1.2.7) and RSAPublicKey (RFC 8017 A.1.1).
#pragma once

#include "host/x509/der.h"

namespace cardcert::x509 {

// AlgorithmIdentifier (RFC 5280 4.1.1.2).
struct Algorithm {
  Bytes tlv;
  Bytes oid;
  Element parameters;  // of tag 0 when they are absent
};
Refusal ReadAlgorithm(Cursor* cursor, Algorithm* out);

struct PublicKey {
  Algorithm algorithm;
  Bytes key;  // of whole octets; in the form that the algorithm defines
};
Refusal ReadPublicKey(Cursor* cursor, PublicKey* out);

// The unsigned values without leading zeros.
struct RsaPublicKey {
  Bytes modulus;
  Bytes exponent;
};
Refusal ReadRsaPublicKey(const PublicKey& key, RsaPublicKey* out);

}  // namespace cardcert::x509
