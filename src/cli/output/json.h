// Certificates as JSON. All of it is ASCII, so that no terminal and no locale can be upset by it;
// bytes that are no UTF-8 become U+FFFD.
#pragma once

#include <list>
#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// An array of one object a certificate, on several lines. `module` is the provider's path.
std::string CertificatesAsJson(const std::list<pkcs11_certificate>& records,
                               const std::string& module);

// One line: {"event":"...","certificate":{...}}.
std::string EventAsJsonLine(const std::string& event, const pkcs11_certificate& record,
                            const std::string& module);

}  // namespace cardcert::cli
