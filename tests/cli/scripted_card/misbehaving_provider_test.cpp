// Providers that throw, end the program, or fork.
#include <algorithm>
#include <string>
#include <tuple>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

struct Thrown {
  const char* kind;
  const char* text;  // as the error message shows it
};

const Thrown kThrown[] = {{"throw", "'out of \\x1b[2Jluck'"},
                          {"throw-int", "'an exception of type int'"},
                          {"throw-own", "::OwnException'"}};

// What throws, and where, among the functions that sign calls once the provider is loaded: before
// the function has done its work, but after it if the function ends something.
struct Place {
  const char* word;
  const char* function;
};

const Place kPlaces[] = {
    {"do", "C_GetSlotList"},
    {"do", "C_GetSlotInfo"},
    {"do", "C_GetTokenInfo"},
    {"do", "C_OpenSession"},
    {"do-after", "C_CloseSession"},
    {"do", "C_FindObjectsInit"},
    {"do", "C_FindObjects"},
    {"do-after", "C_FindObjectsFinal"},
    {"do", "C_GetAttributeValue"},
    {"do", "C_Login"},
    {"do-after", "C_Logout"},
    {"do", "C_SignInit"},
    {"do", "C_Sign"},
    {"do-after", "C_Finalize"},
};

class ThrowingProviderTest : public ScriptedCardTest,
                             public testing::WithParamInterface<std::tuple<Thrown, Place>> {};

TEST_P(ThrowingProviderTest, FailsWithAMessageAndCleansUp) {
  const auto& [thrown, place] = GetParam();
  const std::string function = place.function;
  Card(std::string(place.word) + "=" + thrown.kind + "/" + function);
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err,
              HasSubstr(std::string("cardcert: error: the provider threw an exception in ") +
                        function + ": "));
  EXPECT_THAT(run.err, HasSubstr(thrown.text));
  EXPECT_TRUE(AllLinesAreMessages(run.err));
  ExpectNoViolations();
  // What is thrown after the signature was written cannot take it back.
  EXPECT_EQ(Exists(File("sig")), function == "C_Finalize");
}

INSTANTIATE_TEST_SUITE_P(Sign, ThrowingProviderTest,
                         testing::Combine(testing::ValuesIn(kThrown), testing::ValuesIn(kPlaces)),
                         [](const auto& test) {
                           std::string name = std::get<0>(test.param).kind;
                           name += std::get<1>(test.param).function;
                           name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                           return name;
                         });

class MisbehavingProviderTest : public ScriptedCardTest {};

TEST_F(MisbehavingProviderTest, ReportsAnExceptionWhileLoading) {
  for (const char* function : {"C_Initialize", "C_GetInfo"}) {
    Card(std::string("do=throw/") + function);
    const Finished run = RunCard({"list"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "cardcert: error: the provider threw an exception in loading:"
              " 'out of \\x1b[2Jluck'\n");
    EXPECT_THAT(run.out, IsEmpty());
  }
}

TEST_F(MisbehavingProviderTest, EndsWatchAfterAnException) {
  Card("do=throw/C_WaitForSlotEvent/2");
  const Finished run = RunCard({"watch", "--interval", "0.05"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("threw an exception in C_WaitForSlotEvent"));
  ExpectNoViolations();
}

TEST_F(MisbehavingProviderTest, FailsIfTheProviderEndsTheProgram) {
  for (const char* function : {"C_Initialize", "C_GetSlotList", "C_Login", "C_Sign"}) {
    Card(std::string("do=exit/") + function);
    const Finished run = RunSign({"--pin-file", PinFile()});
    EXPECT_EQ(run.status, 1) << function;
    EXPECT_THAT(run.err, HasSubstr("cardcert: error: the provider ended the program"));
    EXPECT_FALSE(Exists(File("sig")));
  }
}

TEST_F(MisbehavingProviderTest, ContinuesOnceIfTheProviderForks) {
  Card("do=fork/C_GetSlotList");
  const Finished run = RunCard({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'),
            2);  // the heading and the certificate
}

TEST_F(MisbehavingProviderTest, LetsAProviderForkAHelper) {
  Card("do=fork-exit/C_Login");
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
}

}  // namespace
