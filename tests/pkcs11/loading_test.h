// The fixture for Open().
#pragma once

#include <string>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"
#include "pkcs11/traced_loader.h"

class LoadingTest : public ModuleTest {
 protected:
  int OpenProvider(const std::string& name) { return module.Open(ProviderPath(name)); }

  void TearDown() override {
    ResetLoaderError();
    ModuleTest::TearDown();
  }
};
