// Certificates that are refused: a valid certificate with one change, and the expected reason.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "host/x509/refusal.h"
#include "support/der_writer.h"

struct RefusalCase {
  const char* name;
  cardcert::x509::Reason reason;
  std::function<void(der::Certificate&)> change;

  std::string Der() const {
    der::Certificate certificate;
    change(certificate);
    return certificate.Der();
  }
};

inline void PrintTo(const RefusalCase& one, std::ostream* out) {
  *out << one.name;
}

const std::vector<RefusalCase>& RefusedCertificates();
