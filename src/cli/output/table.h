// Certificates as text.
#pragma once

#include <list>
#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Returns a line of headings and one line for each certificate. Text from certificates and tokens
// is escaped and cannot begin a new line or look like another field.
std::string CertificateTable(const std::list<pkcs11_certificate>& records);

// Returns one certificate in one line without a line break. Two spaces separate the fields.
std::string CertificateLine(const pkcs11_certificate& record);

}  // namespace cardcert::cli
