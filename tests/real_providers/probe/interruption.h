// Something that happens just before the component's n-th step: a card is pulled out, a helper
// dies.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

// A function list in front of a provider's. Just before the first call of one step it runs a
// command, and notes what the provider then answers. One at a time in a process. Steps:
//   slots    C_GetSlotList          search   C_FindObjectsInit for certificates
//   token    C_GetTokenInfo         found    C_FindObjects
//   session  C_OpenSession          read     C_GetAttributeValue
//   login    C_Login                key      C_FindObjectsInit for the private key
//   init     C_SignInit             sign     C_Sign
//   poll     C_WaitForSlotEvent
class Interruption {
 public:
  Interruption(CK_FUNCTION_LIST_PTR provider, std::string step, std::string command);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  CK_FUNCTION_LIST_PTR functions() { return &functions_; }

  // Whether the step was taken, and the name of its answer; with a remark when that took more than
  // a second.
  bool happened() const { return happened_; }
  std::string answer() const;

 private:
  template <typename Call>
  static CK_RV Before(const char* step, Call call);

  CK_FUNCTION_LIST functions_;
  std::string step_;
  std::string command_;
  bool happened_ = false;
  CK_RV answer_ = CKR_OK;
  bool waited_ = false;
};
