// The certificate library of another host program. Its types differ from those of src/host: only
// the calls that the component makes compile with both.
#pragma once

namespace scripted_host {
class Certificate;
}

typedef scripted_host::Certificate certificate;

certificate* cert_alloc(bool zeroed = true);
bool cert_free(certificate* cert);
long cert_parse(const void* bytes, long length, certificate* cert);
long cert_subject(const certificate* cert, char* buffer, unsigned long long size);
int cert_subject_attr(const certificate* cert, const char* attribute, char* buffer,
                      unsigned long long size);
int cert_issuer_attr(const certificate* cert, const char* attribute, char* buffer,
                     unsigned long long size);
short cert_is_ca(const certificate* cert);
long cert_serial(const certificate* cert, unsigned char* buffer, unsigned long* length);
short cert_key_usage(const certificate* cert, int* usage);
long cert_rsa_public_key_components(const certificate* cert, unsigned char* exponent,
                                    unsigned long* exponent_len, unsigned char* modulus,
                                    unsigned long* modulus_len);
