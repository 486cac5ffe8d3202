#include "host/certificate.h"

#include <algorithm>
#include <cstring>

#include "scripted_host/scripted_host.h"

namespace {

using scripted_host::Certificate;
using scripted_host::Host;

Host& TheHost() {
  return Host::Instance();
}

std::string Result(const std::string& name, long result) {
  return '(' + name + ") = " + std::to_string(result);
}

// Returns -1 if the text does not fit.
int Copy(const std::string& text, char* buffer, unsigned long long size) {
  if (text.size() >= size)
    return -1;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return 0;
}

// Returns the requested failure, after writing the partial text, if there is one.
int WritePartAndFail(const Certificate& cert, const std::string& function, char* buffer,
                     unsigned long long size) {
  if (cert.Has("partial." + function))
    Copy(cert.Text("partial." + function), buffer, size);
  return cert.Failure(function);
}

// Writes an attribute of the subject or the issuer. Returns -2 if there is none of that name.
int Attribute(const Certificate& cert, const std::string& function, const std::string& word,
              const std::string& common_name, char* buffer, unsigned long long size) {
  if (cert.Failure(function) != 0)
    return WritePartAndFail(cert, function, buffer, size);
  const std::string::size_type dot = word.find('.');
  if (cert.Has(word))
    return Copy(cert.Text(word), buffer, size);
  if (word.substr(dot + 1) == "commonName")
    return Copy(common_name, buffer, size);
  return -2;
}

// Writes `wanted` bytes, none of them zero and no two adjacent ones equal.
bool WriteKeyBytes(long wanted, unsigned char* buffer, unsigned long capacity) {
  if (wanted < 0 || static_cast<unsigned long>(wanted) > capacity)
    return false;
  for (long i = 0; i < wanted; ++i)
    buffer[i] = static_cast<unsigned char>(1 + i % 251);
  return true;
}

// Records the call and returns its result.
template <typename Number>
Number RecordResult(const char* function, const Certificate* cert, Number result) {
  TheHost().Called(function, Result(cert->name(), result));
  return result;
}

}  // namespace

certificate* cert_alloc(bool) {
  const bool fails = TheHost().AllocFails();
  TheHost().Called("cert_alloc", fails ? "() = NULL" : "()");
  return fails ? nullptr : TheHost().Alloc();
}

bool cert_free(certificate* cert) {
  TheHost().CheckAlive(cert, "cert_free");
  TheHost().Called("cert_free", '(' + cert->name() + ')');
  TheHost().Free(cert);
  return true;
}

long cert_parse(const void* bytes, long length, certificate* cert) {
  TheHost().CheckAlive(cert, "cert_parse");
  const std::string text =
      length > 0 ? std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(length))
                 : std::string();
  const bool parsed = cert->Parse(text);
  const bool accepted = parsed || (length == 0 && TheHost().accepts_empty());
  const int result = accepted ? cert->Failure("parse") : 1;
  const std::string name = parsed ? cert->name() : std::to_string(length) + " bytes";
  TheHost().Called("cert_parse", Result(name, result));
  return result;
}

long cert_subject(const certificate* cert, char* buffer, unsigned long long size) {
  TheHost().CheckAlive(cert, "cert_subject");
  const int result = cert->Failure("subject") != 0
                         ? WritePartAndFail(*cert, "subject", buffer, size)
                         : Copy(cert->Text("subject", "CN=" + cert->name()), buffer, size);
  TheHost().Called("cert_subject", Result(cert->name() + ", size " + std::to_string(size), result));
  return result;
}

int cert_subject_attr(const certificate* cert, const char* attribute, char* buffer,
                      unsigned long long size) {
  TheHost().CheckAlive(cert, "cert_subject_attr");
  const int result = Attribute(*cert, "subject_attr", std::string("subject.") + attribute,
                               cert->name(), buffer, size);
  TheHost().Called(
      "cert_subject_attr",
      Result(cert->name() + ", " + attribute + ", size " + std::to_string(size), result));
  return result;
}

int cert_issuer_attr(const certificate* cert, const char* attribute, char* buffer,
                     unsigned long long size) {
  TheHost().CheckAlive(cert, "cert_issuer_attr");
  const int result = Attribute(*cert, "issuer_attr", std::string("issuer.") + attribute,
                               "Example CA", buffer, size);
  TheHost().Called(
      "cert_issuer_attr",
      Result(cert->name() + ", " + attribute + ", size " + std::to_string(size), result));
  return result;
}

short cert_is_ca(const certificate* cert) {
  TheHost().CheckAlive(cert, "cert_is_ca");
  const int failure = cert->Failure("is_ca");
  return RecordResult("cert_is_ca", cert,
                      static_cast<short>(failure != 0 ? failure : cert->Number("ca")));
}

long cert_serial(const certificate* cert, unsigned char* buffer, unsigned long* length) {
  TheHost().CheckAlive(cert, "cert_serial");
  const unsigned long capacity = *length;
  const std::string serial = cert->serial();
  long result = cert->Failure("serial");
  if (result == 0) {
    std::copy(serial.begin(), serial.end(), buffer);
    *length =
        static_cast<unsigned long>(cert->Number("claim.serial", static_cast<long>(serial.size())));
  }
  TheHost().Called("cert_serial",
                   Result(cert->name() + ", room for " + std::to_string(capacity), result));
  return result;
}

short cert_key_usage(const certificate* cert, int* usage) {
  TheHost().CheckAlive(cert, "cert_key_usage");
  const int failure = cert->Failure("key_usage");
  const bool absent = cert->Text("usage", "absent") == "absent";
  const long usual = failure != 0 ? 0 : absent ? -1 : cert->Number("usage");
  *usage = static_cast<int>(cert->Number("claim.usage", usual));
  return RecordResult("cert_key_usage", cert,
                      static_cast<short>(failure != 0 ? failure
                                         : absent     ? -2
                                                      : 0));
}

long cert_rsa_public_key_components(const certificate* cert, unsigned char* exponent,
                                    unsigned long* exponent_len, unsigned char* modulus,
                                    unsigned long* modulus_len) {
  TheHost().CheckAlive(cert, "cert_rsa_public_key_components");
  const std::string room =
      ", room for " + std::to_string(*exponent_len) + " and " + std::to_string(*modulus_len);
  const std::string lengths = cert->Text("rsa", "3:256");
  const long exponent_wanted = std::strtol(lengths.c_str(), nullptr, 10);
  const long modulus_wanted = std::strtol(lengths.c_str() + lengths.find(':') + 1, nullptr, 10);
  long result = cert->Failure("rsa");
  if (result == 0 && !(WriteKeyBytes(exponent_wanted, exponent, *exponent_len) &&
                       WriteKeyBytes(modulus_wanted, modulus, *modulus_len)))
    result = -1;
  if (result == 0) {
    *exponent_len = static_cast<unsigned long>(cert->Number("claim.exponent", exponent_wanted));
    *modulus_len = static_cast<unsigned long>(cert->Number("claim.modulus", modulus_wanted));
  }
  TheHost().Called("cert_rsa_public_key_components", Result(cert->name() + room, result));
  return result;
}
