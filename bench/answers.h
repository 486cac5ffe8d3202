// The work that is measured: parse one certificate, answer ten queries about it, release
// everything. Each library is used as a program would use it for speed.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

// The caller's buffers, with the sizes that the component uses. They are reused for each
// certificate; octets beyond the end of an answer are unspecified.
struct Answers {
  char subject[16834];  // in the form of RFC 4514 or of the library
  // UTF-8 without escapes; empty if there is no such attribute.
  char subject_common_name[1024];
  char subject_organization[1024];
  char issuer_common_name[1024];
  char issuer_organization[1024];
  bool is_ca;
  unsigned char serial[1024];  // the contents of the INTEGER, including a leading zero octet
  unsigned long serial_len;
  int key_usage;  // the bits of host/certificate.h, or -1 if there is no extension
  // Unsigned, without leading zero octets; both lengths are 0 if the key is not an RSA key.
  unsigned char exponent[17];
  unsigned long exponent_len;
  unsigned char modulus[8193];
  unsigned long modulus_len;
};

// Returns false if the library refuses the certificate or a query. `der` outlives the call, so a
// library may read it in place; ours copies it.
using AskFunction = bool(const std::string& der, Answers* answers);
AskFunction AskCardcert;
AskFunction AskLibcrypto;
AskFunction AskMbedtls;
AskFunction AskGnutls;

inline const unsigned char* OctetsOf(const std::string& der) {
  return reinterpret_cast<const unsigned char*>(der.data());
}

// Copies a text and appends a NUL. Returns false if it does not fit.
template <std::size_t size>
bool CopyText(const void* text, std::size_t length, char (&buffer)[size]) {
  if (length >= size)
    return false;
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return true;
}
