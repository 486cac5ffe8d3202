// The work that is timed: read one certificate, give ten answers about it, release everything. Each
// library does it in the way of a program that uses this library and wants it fast.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

// Buffers of the caller, of the sizes that the component has for them. They are filled again for
// each certificate; what lies behind the end of an answer is left from the one before.
struct Answers {
  char subject[16834];  // as RFC 4514 writes it, or in the library's own form
  // UTF-8 without escapes; empty when there is no such attribute.
  char subject_common_name[1024];
  char subject_organization[1024];
  char issuer_common_name[1024];
  char issuer_organization[1024];
  bool is_ca;
  unsigned char serial[1024];  // the contents of the INTEGER, a leading zero octet included
  unsigned long serial_len;
  int key_usage;  // the bits of host/certificate.h; -1 without the extension
  // Unsigned, without leading zero octets; both lengths are 0 when the key is no RSA key.
  unsigned char exponent[17];
  unsigned long exponent_len;
  unsigned char modulus[8193];
  unsigned long modulus_len;
};

// False when the library refuses the certificate or one of the questions. `der` stays as long as
// the call lasts, so a library that can read in place need not copy it; ours copies it all the
// same.
using AskFunction = bool(const std::string& der, Answers* answers);
AskFunction AskCardcert;
AskFunction AskLibcrypto;
AskFunction AskMbedtls;
AskFunction AskGnutls;

inline const unsigned char* OctetsOf(const std::string& der) {
  return reinterpret_cast<const unsigned char*>(der.data());
}

// Copies a text that has no NUL of its own yet. False when it does not fit.
template <std::size_t size>
bool CopyText(const void* text, std::size_t length, char (&buffer)[size]) {
  if (length >= size)
    return false;
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return true;
}
