// Lists the certificates on the tokens of one PKCS#11 provider.
#include <cstdio>

#include "host/logfile.h"
#include "pkcs11/pkcs11.h"

int main(int argc, char** argv) {
  logfile.LogToStandardError();  // Shows why a certificate is missing.
  logfile.SetMaxLevel(3);        // Leaves out tracing.
  PKCS11Module module;
  module.SetNameComponents("subject_commonName");
  if (argc != 2 || module.Open(argv[1]) != 0)
    return 1;
  for (const pkcs11_certificate& cert : module.GetCertificates())
    std::printf("%s  %s\n", cert.serial.c_str(), cert.presentable_name.front().c_str());
}
