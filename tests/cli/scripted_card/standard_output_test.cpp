// Providers that use standard output, which belongs to the program's data.
#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;

struct Printed {
  const char* name;
  Words command;
};

class PrintingProviderTest : public ScriptedCardTest, public testing::WithParamInterface<Printed> {
 protected:
  Finished Run(const std::string& card) {
    Card(card);
    Words command = GetParam().command;
    if (command.front() == "sign")
      command = Concat(command, {"--in", Write("in", "x"), "--pin-file", PinFile()});
    return RunCard(command);
  }
};

TEST_P(PrintingProviderTest, DoesNotChangeTheData) {
  const Finished quiet = Run("");
  ASSERT_EQ(quiet.status, 0) << quiet.err;
  ASSERT_NE(quiet.out, "");
  for (const char* const kind : {"print", "print-buffered"}) {
    for (const char* const function : {"C_Initialize", "C_GetSlotList", "C_Finalize"}) {
      const Finished run = Run(std::string("do=") + kind + "/" + function);
      EXPECT_EQ(run.status, 0) << run.err;
      EXPECT_EQ(run.out, quiet.out) << kind << " " << function;
      EXPECT_THAT(run.err, HasSubstr("provider: hello\n"));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Commands, PrintingProviderTest,
    testing::Values(Printed{"Table", {"list"}}, Printed{"Json", {"list", "--json"}},
                    Printed{"Present", {"present", "4fa107"}},
                    Printed{"Watch", {"watch", "--json", "--count", "1"}},
                    Printed{"Signature", {"sign", "4fa107"}},
                    Printed{"Base64", {"sign", "4fa107", "--encoding", "base64"}},
                    Printed{"DevStdout", {"sign", "4fa107", "--out", "/dev/stdout"}},
                    Printed{"Descriptor1", {"sign", "4fa107", "--out", "/dev/fd/1"}},
                    Printed{"ThreadsDescriptor1",
                            {"sign", "4fa107", "--out", "/proc/thread-self/fd/1"}}),
    [](const auto& test) { return test.param.name; });

class StandardOutputTest : public ScriptedCardTest {};

TEST_F(StandardOutputTest, ProcessesOfTheProviderDoNotKeepItOpen) {
  for (const char* const kind : {"leave-child", "leave-program"}) {
    Card(std::string("do=") + kind + "/C_Initialize");
    const Finished run = InBash("\"$@\" 2> /dev/null | timeout 10 cat; exit ${PIPESTATUS[1]}",
                                CardCommand({"list"}));
    EXPECT_EQ(run.status, 0) << kind << ": cat has not seen the end of the data";
    EXPECT_THAT(run.out, HasSubstr("4fa107"));
  }
}

TEST_F(StandardOutputTest, AClosedDescriptorIsReported) {
  Card("do=close-descriptors/C_GetSlotList");
  const Finished run = RunCard({"list"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, Error("cannot write to standard output: the provider closed a file that the"
                           " program needs"));
}

TEST_F(StandardOutputTest, WorksWithFewDescriptors) {
  Card("do=print/C_GetSlotList");
  const Finished run = InShell("ulimit -n 40; exec \"$@\"", CardCommand({"list"}));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, testing::Not(HasSubstr("provider")));
}

}  // namespace
