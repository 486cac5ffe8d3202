// The fixture for GetToken(). The tests are in token_description_test.cpp and
// token_fields_test.cpp.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

class TokenDescriptionTest : public ModuleTest {
 protected:
  // Describes a token "Alice" in slot 1 with these certificates.
  std::list<pkcs11_certificate> Describe(const std::vector<std::string>& texts) {
    scripted::Token& token = provider.Slot(1, "Reader").Token("Alice");
    for (const std::string& text : texts)
      token.Certificate(text);
    Open();
    return module.GetToken(1);
  }

  // Compares the trace of Describe(). `descriptions` are the lines after the certificates are read
  // and before they are freed.
  static void ExpectDescribed(const std::vector<std::string>& texts,
                              const std::string& descriptions) {
    EXPECT_TRACE(IdentifiesToken(1, "Reader", "Alice"), ReadsToken(1, 1, texts), descriptions,
                 FreesCertificates(texts));
  }
};
