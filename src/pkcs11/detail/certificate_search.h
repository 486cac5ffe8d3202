// A search for certificate objects.
#pragma once

#include <p11-kit/pkcs11.h>

#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/provider.h"

namespace cardcert::detail {

// Walks the certificate objects that a session can see. Objects of every certificate type are
// found, because only the object class is searched for.
//
// Does not end the search on destruction: PKCS#11 has the caller of a failed search choose between
// C_FindObjectsFinal and C_CloseSession.
class CertificateSearch {
 public:
  // `session` must stay open while the search is used.
  CertificateSearch(Provider provider, CK_SESSION_HANDLE session)
      : provider_(provider), session_(session) {}

  // Returns the result of C_FindObjectsInit.
  CK_RV Begin() const {
    CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
    CK_ATTRIBUTE search[] = {{CKA_CLASS, &object_class, sizeof object_class}};
    return provider_.FindObjectsInit(session_, search, 1);
  }

  // Stores the next object in `*object` and returns true. Returns false at the end: there is no
  // further object, C_FindObjects has failed, or the provider has returned kMaxObjects already.
  // Must be called only after a successful Begin(), and not again once it has returned false.
  bool Next(CK_OBJECT_HANDLE* object) {
    *object = CK_INVALID_HANDLE;
    CK_ULONG found = 0;
    failed_ = provider_.FindObject(session_, object, &found) != CKR_OK;
    if (failed_ || found == 0)
      return false;
    if (num_objects_++ < kMaxObjects)
      return true;
    logfile.Log("Giving up the search after " + Decimal(kMaxObjects) + " objects", 3);
    return false;
  }

  // Returns true if the last Next() returned false because C_FindObjects had failed.
  bool failed() const { return failed_; }

  // Calls C_FindObjectsFinal and ignores its result.
  void End() const { provider_.FindObjectsFinal(session_); }

 private:
  // Far more objects than a token holds. Without a limit, a provider whose search never ends would
  // block the host.
  static constexpr int kMaxObjects = 10000;

  Provider provider_;
  CK_SESSION_HANDLE session_;
  int num_objects_ = 0;
  bool failed_ = false;
};

}  // namespace cardcert::detail
