// Loads the scripted provider without the component.
#pragma once

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "scripted_provider/provider.h"

class ScriptedProviderTest : public testing::Test {
 protected:
  void SetUp() override {
    provider.Reset();
    scripted::Trace::Instance().Clear();
    library_ = dlopen(SCRIPTED_PROVIDER_FOLDER "scripted.so", RTLD_LAZY);
    ASSERT_NE(library_, nullptr) << dlerror();
    const auto get_function_list =
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_, "C_GetFunctionList"));
    ASSERT_EQ(get_function_list(&p11), CKR_OK);
    ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  }
  void TearDown() override { dlclose(library_); }

  CK_SESSION_HANDLE OpenSession(CK_SLOT_ID slot, CK_FLAGS flags = CKF_RW_SESSION) {
    CK_SESSION_HANDLE session = 0;
    EXPECT_EQ(p11->C_OpenSession(slot, CKF_SERIAL_SESSION | flags, nullptr, nullptr, &session),
              CKR_OK);
    return session;
  }
  CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE type, std::string pin) {
    return p11->C_Login(session, type, reinterpret_cast<CK_UTF8CHAR*>(&pin[0]), pin.size());
  }
  CK_RV InitPin(CK_SESSION_HANDLE session, std::string pin) {
    return p11->C_InitPIN(session, reinterpret_cast<CK_UTF8CHAR*>(&pin[0]), pin.size());
  }
  CK_FLAGS TokenFlags(CK_SLOT_ID slot) {
    CK_TOKEN_INFO info = {};
    EXPECT_EQ(p11->C_GetTokenInfo(slot, &info), CKR_OK);
    return info.flags;
  }
  // Returns the objects of this class.
  std::vector<CK_OBJECT_HANDLE> Search(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class) {
    CK_ATTRIBUTE asked = {CKA_CLASS, &object_class, sizeof object_class};
    EXPECT_EQ(p11->C_FindObjectsInit(session, &asked, 1), CKR_OK);
    std::vector<CK_OBJECT_HANDLE> objects(10);
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_FindObjects(session, objects.data(), objects.size(), &count), CKR_OK);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
    objects.resize(count);
    return objects;
  }

  scripted::Provider& provider = scripted::Provider::Instance();
  CK_FUNCTION_LIST_PTR p11 = nullptr;

 private:
  void* library_ = nullptr;
};
