// A parsed certificate whose answers are returned by value.
#pragma once

#include <memory>
#include <string>

#include "host/certificate.h"
#include "host/x509/refusal.h"

using cardcert::x509::Reason;

inline int CodeOf(Reason reason) {
  return static_cast<int>(reason);
}

struct Text {
  int code = 0;
  std::string text;
};

struct Octets {
  int code = 0;
  std::string octets;
};

class Parsed {
 public:
  explicit Parsed(const std::string& der) : cert_(cert_alloc(), cert_free) {
    // A heap copy of the exact size, freed before the first query, lets AddressSanitizer detect
    // reads beyond the end and dangling references.
    const std::unique_ptr<unsigned char[]> octets(new unsigned char[der.size()]);
    der.copy(reinterpret_cast<char*>(octets.get()), der.size());
    code_ = cert_parse(octets.get(), static_cast<int>(der.size()), cert_.get());
  }

  int code() const { return code_; }
  certificate* get() const { return cert_.get(); }

  Text Subject(std::size_t size = 16834) const {
    return Ask(size, [&](char* buffer) { return cert_subject(get(), buffer, size); });
  }
  Text SubjectAttr(const std::string& word, std::size_t size = 16834) const {
    return Ask(size,
               [&](char* buffer) { return cert_subject_attr(get(), word.c_str(), buffer, size); });
  }
  Text IssuerAttr(const std::string& word, std::size_t size = 16834) const {
    return Ask(size,
               [&](char* buffer) { return cert_issuer_attr(get(), word.c_str(), buffer, size); });
  }
  Octets Serial(unsigned long size = 16834) const {
    const std::unique_ptr<unsigned char[]> buffer(new unsigned char[size]);
    unsigned long length = size;
    const int code = cert_serial(get(), buffer.get(), &length);
    return {code, code == 0 ? std::string(reinterpret_cast<char*>(buffer.get()), length) : ""};
  }
  Octets Modulus() const { return Rsa(true); }
  Octets Exponent() const { return Rsa(false); }
  int IsCa() const { return cert_is_ca(get()); }
  int KeyUsageCode() const {
    int ignored = 0;
    return cert_key_usage(get(), &ignored);
  }
  int KeyUsage() const {
    int usage = 12345;
    cert_key_usage(get(), &usage);
    return usage;
  }

 private:
  template <typename Query>
  Text Ask(std::size_t size, Query query) const {
    const std::unique_ptr<char[]> buffer(new char[size]);
    if (size > 0)
      buffer[0] = '?';
    const int code = query(buffer.get());
    return {code, size > 0 ? buffer.get() : ""};
  }

  Octets Rsa(bool modulus_wanted) const {
    const std::unique_ptr<unsigned char[]> exponent(new unsigned char[17]);
    const std::unique_ptr<unsigned char[]> modulus(new unsigned char[8193]);
    unsigned long exponent_len = 17;
    unsigned long modulus_len = 8193;
    const int code = cert_rsa_public_key_components(get(), exponent.get(), &exponent_len,
                                                    modulus.get(), &modulus_len);
    if (code != 0)
      return {code, ""};
    return {0, modulus_wanted ? std::string(reinterpret_cast<char*>(modulus.get()), modulus_len)
                              : std::string(reinterpret_cast<char*>(exponent.get()), exponent_len)};
  }

  std::unique_ptr<certificate, void (*)(certificate*)> cert_;
  int code_ = 0;
};

// Returns the result of cert_parse().
inline int ParseCode(const std::string& der) {
  return Parsed(der).code();
}
