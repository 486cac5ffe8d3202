// Sign: failures, cancellations and exceptions, after each of which nothing is left open.
#include "pkcs11/signing_test.h"

namespace {

using SigningFailureTest = SigningTest;

TEST_F(SigningFailureTest, ReportsUnknownSerial) {
  OpenWithToken();
  EXPECT_FALSE(Sign("02"));
  EXPECT_TRACE("log 5: Preparing signature operation...",
               "log 5: Finding certificate with serial 02", ListsSlots({1}),
               BeginsSearch(1, 1, "SERIAL|RW"), ExaminesCertificate(1, 1, "A"),
               "log 5: Not the certificate we're looking for (serial 01)", FindsNoObject(1),
               EndsSearch(1), "log 5: Failed to find the certificate");
}

// One call that fails. The trace begins after FindsCertificate() and ends before C_CloseSession.
struct FailureCase {
  const char* name;
  const char* function;
  int nth;
  CK_RV rv;
  bool requires_login;
  std::string trace;
};

class FailedCall : public SigningTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(FailedCall, EndsSignature) {
  const FailureCase& failure = GetParam();
  failure.requires_login ? OpenWithPin() : OpenWithToken();
  provider.On(failure.function, failure.nth).Return(failure.rv);
  if (failure.trace.find("ask USER") != std::string::npos)
    pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  // CKR_CANCEL is taken for a cancellation by the user, whichever call returns it.
  EXPECT_TRACE(FindsCertificate(), failure.trace,
               failure.rv == CKR_CANCEL ? Aborts() : Fails(failure.rv));
}

std::string NameOfFailure(const testing::TestParamInfo<FailureCase>& info) {
  return info.param.name;
}

std::string FailsToReadId(const std::string& answer) {
  return "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = " + answer +
         "\nlog 3: Unable to read certificate ID\n";
}

std::string FailsToReadTokenInfo(const std::string& answer) {
  return "C_GetTokenInfo(slot 1) = " + answer + "\nlog 3: Unable to get info about token\n";
}

std::string FailsToBeginKeySearch(const std::string& answer) {
  return "log 5: Finding private key...\n"
         "C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = " +
         answer + '\n';
}

std::string FailsToFindKey(const std::string& answer) {
  return BeginsKeySearch("C_FindObjects(session 1, max 1) = " + answer + '\n');
}

std::string FailsToBeginSignature(const std::string& answer) {
  return "log 5: Signing data...\nC_SignInit(session 1, CKM_RSA_PKCS, object 2) = " + answer + '\n';
}

// What precedes the search for the key, with and without a login.
const std::string kReadsToken = ReadsId() + kReadsTokenInfo;
const std::string kLogsIn = kReadsToken + LogsIn();

INSTANTIATE_TEST_SUITE_P(
    WithoutLogin, FailedCall,
    testing::Values(FailureCase{"Id", "C_GetAttributeValue", 3, CKR_ATTRIBUTE_TYPE_INVALID, false,
                                FailsToReadId("ATTRIBUTE_TYPE_INVALID")},
                    FailureCase{"TokenInfo", "C_GetTokenInfo", 1, CKR_DEVICE_ERROR, false,
                                ReadsId() + FailsToReadTokenInfo("DEVICE_ERROR")},
                    // A value of the vendor, which is written as a signed number.
                    FailureCase{"Key", "C_FindObjects", 2, ~CK_RV{0}, false,
                                kReadsToken + FailsToFindKey(support::CkrName(~CK_RV{0}))}),
    NameOfFailure);

INSTANTIATE_TEST_SUITE_P(
    LoggedIn, FailedCall,
    testing::Values(FailureCase{"KeySearch", "C_FindObjectsInit", 2, CKR_DEVICE_ERROR, true,
                                kLogsIn + FailsToBeginKeySearch("DEVICE_ERROR") + LogsOut()},
                    // The search is not finished.
                    FailureCase{"Key", "C_FindObjects", 2, CKR_DEVICE_ERROR, true,
                                kLogsIn + FailsToFindKey("DEVICE_ERROR") + LogsOut()}),
    NameOfFailure);

INSTANTIATE_TEST_SUITE_P(
    Cancelled, FailedCall,
    testing::Values(
        FailureCase{"Id", "C_GetAttributeValue", 3, CKR_CANCEL, true, FailsToReadId("CANCEL")},
        FailureCase{"TokenInfo", "C_GetTokenInfo", 1, CKR_CANCEL, true,
                    ReadsId() + FailsToReadTokenInfo("CANCEL")},
        FailureCase{"TokenInfoOfTheLogin", "C_GetTokenInfo", 2, CKR_CANCEL, true,
                    kReadsToken + "log 5: Logging in...\n" + FailsToReadTokenInfo("CANCEL")},
        FailureCase{"Login", "C_Login", 1, CKR_CANCEL, true,
                    kReadsToken + BeginsLogin() + EntersPin("USER", 4, CKR_CANCEL) +
                        "log 3: Unexpected token login error: 1"},
        FailureCase{"KeySearch", "C_FindObjectsInit", 2, CKR_CANCEL, true,
                    kLogsIn + FailsToBeginKeySearch("CANCEL") + LogsOut()},
        FailureCase{"Key", "C_FindObjects", 2, CKR_CANCEL, true,
                    kLogsIn + FailsToFindKey("CANCEL") + LogsOut()},
        FailureCase{"SignatureInit", "C_SignInit", 1, CKR_CANCEL, true,
                    kLogsIn + FindsKey() + FailsToBeginSignature("CANCEL") + LogsOut()},
        FailureCase{"Signature", "C_Sign", 1, CKR_CANCEL, true,
                    kLogsIn + FindsKey() + Signs(256, "CANCEL") + LogsOut()}),
    NameOfFailure);

TEST_F(SigningFailureTest, ReportsKeyNeededWhenNoKeyHasTheId) {
  OpenWithPinAndKey("other", Key());
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(), LogsIn(), BeginsKeySearch(FindsNoObject(1)), LogsOut(),
               Fails(CKR_KEY_NEEDED));
}

TEST_F(SigningFailureTest, TriesNoOtherMechanismForKeyOfOtherType) {
  OpenWithPinAndKey(kKeyId, nullptr);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(), LogsIn(), FindsKey(), FailsToBeginSignature("KEY_TYPE_INCONSISTENT"),
               LogsOut(), Fails(CKR_KEY_TYPE_INCONSISTENT));
}

TEST_F(SigningFailureTest, KeepsLengthWhenBufferIsTooSmall) {
  OpenWithPin();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign("01", 127));
  EXPECT_TRACE(Prepares(), LogsIn(), FindsKey(), Signs(127, "BUFFER_TOO_SMALL"), LogsOut(),
               Fails(CKR_BUFFER_TOO_SMALL));
}

TEST_F(SigningFailureTest, RejectsSignatureLengthBeyondBuffer) {
  OpenWithToken();
  provider.On("C_Sign").ReportNumber(257);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(), FindsKey(), Signs(256, "OK, 257 bytes"), Fails(CKR_GENERAL_ERROR));
}

TEST_F(SigningFailureTest, RejectsIdLengthBeyondBuffer) {
  const std::pair<CK_ULONG, std::string> kLengths[] = {
      {257, "257"}, {1UL << 31, "2147483648"}, {CK_UNAVAILABLE_INFORMATION, "unavailable"}};
  for (const auto& [length, text] : kLengths) {
    OpenWithToken();
    provider.On("C_GetAttributeValue", 3).ReportNumber(length);
    EXPECT_FALSE(Sign());
    EXPECT_TRACE(FindsCertificate(), FailsToReadId("OK, " + text + " bytes"),
                 Fails(CKR_GENERAL_ERROR));
    StartOver();
  }
}

TEST_F(SigningFailureTest, ClosesSessionOnExceptionFromPinCallback) {
  OpenWithPin();
  pad.Throw(PIN_TYPE_USER);
  EXPECT_THROW(Sign(), PinPad::Thrown);
  EXPECT_TRACE(Prepares(), BeginsLogin(), "ask USER = exception", ClosesSession(1));
}

TEST_F(SigningFailureTest, LogsOutAndClosesSessionOnExceptionAfterLogin) {
  OpenWithPin();
  host.ThrowAtMessage("Signing data");
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_THROW(Sign(), Thrown);
  EXPECT_TRACE(Prepares(), LogsIn(), FindsKey(), "log 5: Signing data...", LogsOut(),
               ClosesSession(1));
}

// A message that throws. Some are logged only when a call fails.
struct MessageCase {
  const char* message;
  const char* failing_function = nullptr;
  int nth = 1;
  CK_RV rv = CKR_DEVICE_ERROR;
};

class ExceptionFromLog : public SigningTest, public testing::WithParamInterface<MessageCase> {};

TEST_P(ExceptionFromLog, LeavesNothingOpen) {
  OpenWithPin();
  host.ThrowAtMessage(GetParam().message);
  if (GetParam().failing_function != nullptr)
    provider.On(GetParam().failing_function, GetParam().nth).Return(GetParam().rv);
  if (std::string(GetParam().message) == "Passphrase locked")
    provider.Slot(1).Token().ReportedPinFlags(CKF_USER_PIN_LOCKED);
  // Types a wrong PIN first, so that the messages of a second attempt are logged, too.
  const pin_cb ask = [](pkcs11_pin_type type, unsigned char* buffer, unsigned long* length,
                        void* data) {
    if (type == PIN_TYPE_UNLOCK)
      return false;
    int& num_requests = *static_cast<int*>(data);
    const std::string pin = num_requests++ == 0 ? "9999" : "1234";
    pin.copy(reinterpret_cast<char*>(buffer), pin.size());
    *length = pin.size();
    return true;
  };
  int num_requests = 0;
  EXPECT_THROW(SignWith(ask, nullptr, &num_requests), Thrown);
  EXPECT_TRUE(provider.sessions().empty());
  EXPECT_FALSE(provider.Slot(1).Token().login.has_value());
  EXPECT_EQ(host.certificates_alive(), 0u);
  EXPECT_THAT(provider.ViolationsSoFar(), testing::IsEmpty());
  provider.Slot(1).Token().reported_pin_flags.reset();
  EXPECT_TRUE(SignWith(ask, nullptr, &num_requests));
}

INSTANTIATE_TEST_SUITE_P(
    Messages, ExceptionFromLog,
    testing::Values(MessageCase{"Preparing signature operation"}, MessageCase{"Certificate found"},
                    MessageCase{"Logging in"}, MessageCase{"Token login error"},
                    MessageCase{"Previous failed"}, MessageCase{"Finding private key"},
                    MessageCase{"Signing data"}, MessageCase{"Signature operation completed"},
                    MessageCase{"Unable to read certificate ID", "C_GetAttributeValue", 3},
                    MessageCase{"Unable to get info about token", "C_GetTokenInfo", 1},
                    // In Login().
                    MessageCase{"Unable to get info about token", "C_GetTokenInfo", 2},
                    MessageCase{"Passphrase locked"},
                    MessageCase{"Unexpected token login error", "C_Login"},
                    MessageCase{"Signature operation aborted", "C_Sign", 1, CKR_CANCEL},
                    MessageCase{"Signature operation failed", "C_Sign"}));

TEST_F(SigningFailureTest, EndsWhenCardIsRemovedBeforeAnyCall) {
  // Count the calls of a signature that succeeds.
  OpenWithPin();
  const int before = provider.num_calls();
  pad.Type(PIN_TYPE_USER, "1234");
  ASSERT_TRUE(Sign());
  const int num_calls = provider.num_calls() - before;
  StartOver();

  // The signature exists before C_Logout and C_CloseSession, the last two calls.
  for (int nth = 1; nth <= num_calls - 2; ++nth) {
    SCOPED_TRACE(nth);
    OpenWithPin();
    provider.OnAnyCall(nth).Before([this] { provider.Slot(1).Remove(); });
    EXPECT_FALSE(SignWith(TypeUserPin, nullptr, nullptr));
    StartOver();
  }
}

}  // namespace
