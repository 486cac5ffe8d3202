// Shorthands for test certificates and their parts.
#pragma once

#include <string>

#include "support/der_writer.h"

// Returns the octets of a string literal, NULs included.
template <std::size_t size>
std::string Bytes(const char (&literal)[size]) {
  return std::string(literal, size - 1);
}

// Returns the DER of a name whose only attribute is a common name with this value, given as DER.
inline std::string NameOf(const std::string& value) {
  return der::Sequence(der::Set(der::Attribute("CN", value)));
}

// Returns a certificate with this subject, given as DER.
inline der::Certificate WithSubject(const std::string& subject) {
  der::Certificate certificate;
  certificate.subject = subject;
  return certificate;
}
