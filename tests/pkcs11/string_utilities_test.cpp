// The component's use of the host's string utilities: LongToString for numbers in messages, Strip
// for texts of the provider.
#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using StringUtilitiesTest = ModuleTest;

TEST_F(StringUtilitiesTest, WriteEveryNumberInMessagesExceptSerial) {
  provider.Slot(4096, "Reader").Token("Alice").Certificate("A;serial=10");
  Open();
  host.Record("LongToString");
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("A"));
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    LongToString(1)
    log 5: Found 1 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 1) = OK, slots 4096
    C_GetSlotInfo(slot 4096) = OK
    LongToString(4096)
    log 5: Getting token for slot 4096 on 'Reader'
    C_GetTokenInfo(slot 4096) = OK
    log 5: Found token "Alice"
    LongToString(4096)
  )",
               BeginsSearch(4096, 1), FindsObject(1, 1), "LongToString(1)",
               ReadsCertificate(1, 1, "A;serial=10"), FindsNoObject(1), EndsSearch(1), R"(
    log 5: Found certificate for "CN=A"
    log 5: CA: No
    log 5: Serial: 10
    LongToString(2048)
    log 5: Key length: 2048 bits
    cert_free(A)
  )");
}

TEST_F(StringUtilitiesTest, WriteResultsOfProvider) {
  provider.On("C_Initialize").Return(CKR_PIN_INCORRECT);
  host.Record("LongToString");
  EXPECT_EQ(module.Open(ProviderPath("scripted")), -1);
  EXPECT_TRACE(OpensLibrary("scripted.so"), R"(
    C_GetFunctionList() = OK
    C_Initialize(NULL) = PIN_INCORRECT
    LongToString(160)
    log 2: Error initializing PKCS#11 module 'scripted.so': 160
  )",
               ClosesLibrary("scripted.so"));
}

// The white space of isspace() in the C locale, in a fixed order.
TEST_F(StringUtilitiesTest, StripTextsOfProviderAndSlot) {
  provider.manufacturer = scripted::Padded("Maker", 32);
  provider.library_description = std::string("Tokens") + std::string(26, '\0');
  provider.Slot(1).Description("Reader", '\0').Token("Alice");
  host.Record("Strip");
  EXPECT_EQ(module.Open(ProviderPath("scripted")), 0);
  EXPECT_THAT(module.GetToken(1), IsEmpty());
  EXPECT_TRACE(LoadsProvider(), R"(
    C_GetInfo() = OK
    Strip("Maker                           ", " \x0c\x0a\x0d\x09\x0b")
    log 3: Manufacturer: Maker
    Strip("Tokens", " \x0c\x0a\x0d\x09\x0b")
    log 3: Library description: Tokens
    C_GetSlotInfo(slot 1) = OK
    Strip("Reader", " \x0c\x0a\x0d\x09\x0b")
    log 5: Getting token for slot 1 on 'Reader'
    C_GetTokenInfo(slot 1) = OK
    log 5: Found token "Alice"
  )",
               ReadsToken(1, 1, {}), ReportsNoCertificate("Alice"));
}

}  // namespace
