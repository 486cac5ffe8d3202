// Certificates as JSON. The result is ASCII, so it is safe on every terminal and in every locale.
// Bytes that are not UTF-8 become U+FFFD.
#pragma once

#include <list>
#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Returns an array with one object for each certificate. `module` is the path of the provider.
std::string CertificatesAsJson(const std::list<pkcs11_certificate>& records,
                               const std::string& module);

// Returns one line: {"event":"...","certificate":{...}}.
std::string EventAsJsonLine(const std::string& event, const pkcs11_certificate& record,
                            const std::string& module);

}  // namespace cardcert::cli
