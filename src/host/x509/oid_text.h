// The dotted form of object identifiers (RFC 4512 1.4), such as "2.5.4.3".
#pragma once

#include "host/x509/bytes.h"
#include "host/x509/refusal.h"
#include "host/x509/text_writer.h"

namespace cardcert::x509 {

// Both functions take the contents of an OBJECT IDENTIFIER that passed CheckOid(). They support
// arcs of up to 19 octets, which hold the 128-bit values of X.667. Larger arcs are refused, because
// the work grows with the square of their length.

// Writes the dotted form. On failure `*out` may hold part of it.
Refusal PutDottedOid(Bytes oid, TextWriter* out);

// Returns true if `dotted` is the dotted form of the object identifier, without superfluous zeros.
// Returns false if an arc is too large.
bool IsDottedFormOf(const char* dotted, Bytes oid);

}  // namespace cardcert::x509
