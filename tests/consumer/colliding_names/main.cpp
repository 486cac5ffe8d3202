// Lists the certificates of a provider and signs with the key of the one whose holder is given.
//
//   colliding_names PROVIDER NAME PIN
//
// Then checks that neither the program nor the component has called a function of the other.
#include <cstdio>
#include <cstring>
#include <string>

#include "colliding_names.h"
#include "host/logfile.h"
#include "pkcs11/pkcs11.h"

namespace {

bool AnswerPin(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
  if (type != PIN_TYPE_USER)
    return false;
  *length = std::strlen(static_cast<const char*>(data));
  std::memcpy(buffer, data, *length);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4)
    return 2;
  // Every call is one that the program counts.
  const int num_calls_of_use_all = UseAll();
  if (UseAllInHost() != num_calls_of_use_all || UseAllInPkcs11() != num_calls_of_use_all ||
      num_calls != 3 * num_calls_of_use_all) {
    std::puts("the program called functions of the component");
    return 1;
  }
  num_calls = 0;

  logfile.LogToStandardError();
  logfile.SetMaxLevel(3);
  PKCS11Module module;
  if (module.Open(argv[1]) != 0)
    return 1;
  std::string serial;
  for (const pkcs11_certificate& cert : module.GetCertificates()) {
    std::printf("%s  %s\n", cert.serial.c_str(), cert.presentable_name.front().c_str());
    if (cert.presentable_name.front() == argv[2])
      serial = cert.serial;
  }

  const unsigned char data[] = "any data that fits a 2048-bit key";
  unsigned char signature[512];
  unsigned long signature_len = sizeof signature;
  if (!module.CertificatePresent(serial) ||
      !module.Sign(serial, data, sizeof data, signature, &signature_len, AnswerPin, nullptr,
                   argv[3]))
    return 1;
  std::printf("signature of %lu bytes\n", signature_len);
  module.Close();

  if (num_calls != 0) {
    std::printf("the component called %d functions of the program\n", num_calls);
    return 1;
  }
  std::puts("no names collided");
}
