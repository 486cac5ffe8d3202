// Runs a command right before a certain call of the component, for example to remove a card.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

// A function list that forwards to a provider's. Before the first call of one step it runs a shell
// command; then it records the result of that call. There can be only one at a time in a process.
// Steps:
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

  // Returns true if the step was reached.
  bool happened() const { return happened_; }
  // Returns the name of the result of the step, with "after a wait" if it took more than 1.2
  // seconds.
  std::string result() const;

 private:
  template <typename Call>
  static CK_RV Before(const char* step, Call call);

  CK_FUNCTION_LIST functions_;
  std::string step_;
  std::string command_;
  bool happened_ = false;
  CK_RV result_ = CKR_OK;
  bool waited_ = false;
};
