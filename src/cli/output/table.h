// Certificates as a table for people.
#pragma once

#include <list>
#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// A line of headings and one line a certificate. Nothing a certificate says can leave its column's
// line or reach the terminal as a control character.
std::string CertificateTable(const std::list<pkcs11_certificate>& records);

// One certificate in one line, its fields separated by two blanks.
std::string CertificateLine(const pkcs11_certificate& record);

}  // namespace cardcert::cli
