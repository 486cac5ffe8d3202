// Times PKCS11Module::GetCertificates() against the bare sequence of provider calls that it makes.
//
//   listing_benchmark PROVIDER NUM_CERTIFICATES NUM_ROUNDS
//
// PROVIDER must show an empty token with the user PIN "123456". The benchmark fills it with
// RSA-2048 certificates. It then times both walks in this process and with the log off, NUM_ROUNDS
// times each. The rounds are interleaved, so that other load on the machine affects both. It prints
// the medians and their ratio.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "host/logfile.h"
#include "pkcs11/pkcs11.h"
#include "support/certificates.h"

namespace {

void Require(bool condition, const char* what) {
  if (condition)
    return;
  std::fprintf(stderr, "listing_benchmark: %s failed\n", what);
  std::exit(1);
}

void FillToken(CK_FUNCTION_LIST_PTR functions, CK_SLOT_ID slot, int num_certificates) {
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  Require(functions->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                   &session) == CKR_OK,
          "C_OpenSession");
  unsigned char pin[] = {'1', '2', '3', '4', '5', '6'};
  Require(functions->C_Login(session, CKU_USER, pin, sizeof pin) == CKR_OK, "C_Login");

  const std::shared_ptr<const support::RsaKey> key = support::RsaKey::Generate(2048);
  for (int i = 0; i < num_certificates; ++i) {
    char serial[33];
    std::snprintf(serial, sizeof serial, "4a17935cd00e61b82f74e539%08x", static_cast<unsigned>(i));
    support::CertificateDetails details;
    details.serial = serial;
    details.common_name = "Holder " + std::to_string(i);
    details.organization = "Example Organization";
    details.basic_constraints = "critical,CA:FALSE";
    details.key_usage = "critical,digitalSignature,nonRepudiation";
    std::string der = support::MakeCertificate(*key, details);

    CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
    CK_CERTIFICATE_TYPE type = CKC_X_509;
    CK_BBOOL yes = CK_TRUE;
    CK_BBOOL no = CK_FALSE;
    CK_ATTRIBUTE attributes[] = {{CKA_CLASS, &object_class, sizeof object_class},
                                 {CKA_CERTIFICATE_TYPE, &type, sizeof type},
                                 {CKA_TOKEN, &yes, sizeof yes},
                                 {CKA_PRIVATE, &no, sizeof no},
                                 {CKA_SUBJECT, der.data(), 0},
                                 {CKA_VALUE, der.data(), der.size()}};
    CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
    Require(
        functions->C_CreateObject(session, attributes, std::size(attributes), &object) == CKR_OK,
        "C_CreateObject");
  }
  functions->C_Logout(session);
  functions->C_CloseSession(session);
}

// The provider calls of GetCertificates(), in its order, with an allocation for each value and
// nothing done with it. Returns the number of certificates read.
int WalkBare(CK_FUNCTION_LIST_PTR functions) {
  int num_certificates = 0;
  CK_ULONG num_slots = 0;
  functions->C_GetSlotList(CK_TRUE, nullptr, &num_slots);
  const std::unique_ptr<CK_SLOT_ID[]> slots(new CK_SLOT_ID[num_slots]);
  functions->C_GetSlotList(CK_TRUE, slots.get(), &num_slots);
  for (CK_ULONG i = 0; i < num_slots; ++i) {
    CK_SLOT_INFO slot_info;
    functions->C_GetSlotInfo(slots[i], &slot_info);
    CK_TOKEN_INFO token_info;
    functions->C_GetTokenInfo(slots[i], &token_info);

    CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
    if (functions->C_OpenSession(slots[i], CKF_SERIAL_SESSION, nullptr, nullptr, &session) !=
        CKR_OK)
      continue;  // An uninitialised token, which SoftHSM always shows.
    CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
    CK_ATTRIBUTE search[] = {{CKA_CLASS, &object_class, sizeof object_class}};
    functions->C_FindObjectsInit(session, search, 1);
    for (;;) {
      CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
      CK_ULONG num_found = 0;
      functions->C_FindObjects(session, &object, 1, &num_found);
      if (num_found == 0)
        break;
      CK_ATTRIBUTE value = {CKA_VALUE, nullptr, 0};
      functions->C_GetAttributeValue(session, object, &value, 1);
      value.pValue = std::malloc(value.ulValueLen + 1);
      Require(value.pValue != nullptr, "malloc");
      if (functions->C_GetAttributeValue(session, object, &value, 1) == CKR_OK)
        ++num_certificates;
      std::free(value.pValue);
    }
    functions->C_FindObjectsFinal(session);
    functions->C_CloseSession(session);
  }
  return num_certificates;
}

// Processor time, which depends less on other load than elapsed time. Nothing here waits.
template <typename Function>
double Milliseconds(Function function) {
  const std::clock_t began = std::clock();
  function();
  return static_cast<double>(std::clock() - began) * 1000 / CLOCKS_PER_SEC;
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The slot of the initialised token.
CK_SLOT_ID FindToken(CK_FUNCTION_LIST_PTR functions) {
  CK_SLOT_ID slots[16];
  CK_ULONG num_slots = std::size(slots);
  Require(functions->C_GetSlotList(CK_TRUE, slots, &num_slots) == CKR_OK, "C_GetSlotList");
  for (CK_ULONG i = 0; i < num_slots; ++i) {
    CK_TOKEN_INFO info;
    if (functions->C_GetTokenInfo(slots[i], &info) == CKR_OK &&
        (info.flags & CKF_TOKEN_INITIALIZED) != 0)
      return slots[i];
  }
  Require(false, "search for an initialised token");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Require(argc == 4, "usage: listing_benchmark PROVIDER NUM_CERTIFICATES NUM_ROUNDS:");
  const int num_certificates = std::atoi(argv[2]);
  const int num_rounds = std::atoi(argv[3]);
  Require(num_certificates > 0 && num_rounds > 0, "reading the two numbers");

  logfile.LogToNothing();
  PKCS11Module module;
  Require(module.Open(argv[1]) == 0, "Open");
  FillToken(module.function_list, FindToken(module.function_list), num_certificates);

  std::list<pkcs11_certificate> certificates;
  const auto list = [&] { certificates = module.GetCertificates(); };
  int num_read = 0;
  const auto walk = [&] { num_read = WalkBare(module.function_list); };

  std::vector<double> list_times;
  std::vector<double> walk_times;
  for (int i = -1; i < num_rounds; ++i) {
    const double walk_time = Milliseconds(walk);
    const double list_time = Milliseconds(list);
    Require(num_read == num_certificates, "reading the certificates");
    Require(certificates.size() == static_cast<std::size_t>(num_certificates), "GetCertificates");
    certificates.clear();  // so that every round starts with the same free memory
    if (i < 0)
      continue;  // The first round fills the caches.
    walk_times.push_back(walk_time);
    list_times.push_back(list_time);
  }
  std::printf("%d certificates, medians of %d interleaved rounds\n", num_certificates, num_rounds);
  std::printf("%-20s %8.2f ms\n", "bare provider calls", Median(walk_times));
  std::printf("%-20s %8.2f ms\n", "GetCertificates()", Median(list_times));
  std::printf("%-20s %8.3f\n", "ratio", Median(list_times) / Median(walk_times));
}
