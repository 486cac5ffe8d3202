// The fixture for operations that are given an open session: Login and Unlock.
#pragma once

#include <string>

#include "pkcs11/expected_login.h"
#include "pkcs11/module_test.h"
#include "pkcs11/pin_pad.h"

class SessionTest : public ModuleTest {
 protected:
  // A token in slot 1 with the user PIN "1234" and the security officer's PIN "12345678".
  scripted::Token& AddToken() {
    return provider.Slot(1).Token("Alice").UserPin("1234").SoPin("12345678");
  }

  // Opens a session on the token in slot 1; the trace begins after it.
  void OpenSession() {
    Open();
    ASSERT_EQ(module.function_list->C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                                  nullptr, &session),
              CKR_OK);
    ClearTrace();
  }

  void CloseSession() {
    if (LoggedIn())
      module.function_list->C_Logout(session);
    module.function_list->C_CloseSession(session);
    session = CK_INVALID_HANDLE;
  }

  void TearDown() override {
    if (session != CK_INVALID_HANDLE)
      CloseSession();
    ModuleTest::TearDown();
  }

  CK_RV Login(CK_USER_TYPE user_type) {
    return module.Login(session, 1, user_type, pad.ask(), pad.tell(), &pad);
  }
  CK_RV Unlock() { return module.Unlock(session, 1, pad.ask(), pad.tell(), &pad); }

  bool LoggedIn() const { return provider.Slot(1).Token().login.has_value(); }

  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  PinPad pad;
};
