// Searches the program's memory, and the core files of crashes, for PINs.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

// Counts the occurrences of `text` in the writable memory of a process.
std::size_t CountInMemory(pid_t process, const std::string& text) {
  const std::string folder = "/proc/" + std::to_string(process);
  std::ifstream maps(folder + "/maps");
  std::ifstream memory(folder + "/mem", std::ios::binary);
  std::size_t count = 0;
  for (std::string line; std::getline(maps, line);) {
    unsigned long begin = 0;
    unsigned long end = 0;
    char may_read = 0;
    char may_write = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx %c%c", &begin, &end, &may_read, &may_write) != 4 ||
        may_read != 'r' || may_write != 'w')
      continue;
    // A sanitizer maps terabytes that are mostly not backed by memory.
    if (end - begin > (1UL << 32))
      continue;
    constexpr std::size_t kPiece = 1 << 20;
    std::string piece(kPiece + text.size(), '\0');  // Overlaps the next piece.
    for (unsigned long at = begin; at < end; at += kPiece) {
      memory.clear();
      memory.seekg(static_cast<std::streamoff>(at));
      memory.read(piece.data(), static_cast<std::streamsize>(std::min(piece.size(), end - at)));
      const std::string_view found(piece.data(), static_cast<std::size_t>(memory.gcount()));
      for (auto hit = found.find(text); hit < kPiece; hit = found.find(text, hit + 1))
        ++count;
    }
  }
  return count;
}

// A long PIN, none of whose parts of kPartLength occurs twice or in a PIN with another tag.
constexpr std::size_t kPinLength = 96;
constexpr std::size_t kPartLength = 8;
std::string LongPin(char tag) {
  std::string pin;
  for (char c = '0'; pin.size() < kPinLength; ++c)
    pin += {'q', tag, 'z', c};
  return pin;
}

// Counts the occurrences of the parts of a PIN, so that a partly cleared PIN is found, too.
std::size_t CountPartsInMemory(pid_t process, const std::string& pin) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < pin.size(); at += kPartLength)
    count += CountInMemory(process, pin.substr(at, kPartLength));
  return count;
}

// The sanitizers' run-time library keeps a copy of the environment.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BUILT_WITH_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(BUILT_WITH_SANITIZER)
constexpr bool kEnvironmentIsCopied = true;
#else
constexpr bool kEnvironmentIsCopied = false;
#endif

bool IsStopped(pid_t process) {
  const std::string stat = ReadFile("/proc/" + std::to_string(process) + "/stat");
  const std::size_t name_end = stat.rfind(')');
  return name_end != std::string::npos && stat.compare(name_end, 3, ") T") == 0;
}

class PinMemoryTest : public ScriptedCardTest {
 protected:
  void SetUp() override {
    ScriptedCardTest::SetUp();
    ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
    Write("log", "");
  }

  // Signs to a pipe that nobody reads yet, so that the program waits with the signature made.
  Words SignToPipe(const Words& more = {}) const {
    return CardCommand(Concat({"sign", "4fa107", "--in", Write("in", "x"), "--out", File("pipe"),
                               "--log-file", File("log")},
                              more));
  }
  void WaitForSignature() const {
    ASSERT_TRUE(WaitUntil([this] {
      return ReadFile(File("log")).find("Signature operation completed") != std::string::npos;
    }));
  }
  // Lets the program go on. `wait` waits for it to end.
  template <typename Wait>
  void ReadSignature(Wait wait) const {
    const int reader = open(File("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    wait();
    char signature[512];
    EXPECT_EQ(read(reader, signature, sizeof signature), 256);
    close(reader);
  }
};

TEST_F(PinMemoryTest, SearchFindsTextInMemory) {
  // The environment and the values of options are on the program's stack.
  environment_["TEXT"] = LongPin('x');
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Expect("PIN: ");
  EXPECT_GT(CountInMemory(terminal.program(), "Scripted reader"), 0U);
  EXPECT_GT(CountInMemory(terminal.program(), File("sig")), 0U);
  EXPECT_GE(CountPartsInMemory(terminal.program(), LongPin('x')), kPinLength / kPartLength);
}

TEST_F(PinMemoryTest, ClearsTypedPins) {
  const std::string wrong = LongPin('a');
  const std::string wrong_so = LongPin('b');
  const std::string new_pin = LongPin('c');
  const std::string repeated = LongPin('d');
  Card("left=0 max-pin=96");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Answer("[y/N] ", "y");
  terminal.Enter("SO PIN (PUK): ", wrong_so);
  terminal.Enter("SO PIN (PUK): ", "87654321");
  terminal.Enter("New PIN: ", new_pin);
  terminal.Enter("New PIN once more: ", repeated);
  terminal.Enter("New PIN: ", new_pin);
  terminal.Enter("New PIN once more: ", new_pin);
  terminal.Enter("PIN: ", wrong);
  terminal.Expect("PIN: ");
  for (const std::string& pin : {wrong, wrong_so, new_pin, repeated})
    EXPECT_EQ(CountPartsInMemory(terminal.program(), pin), 0U) << pin;
}

TEST_F(PinMemoryTest, ClearsTheLastTypedPin) {
  // No later question overwrites this PIN.
  const std::string pin = LongPin('e');
  Card("left=0 max-pin=96");
  PseudoTerminal terminal(SignToPipe(), environment_);
  terminal.Answer("[y/N] ", "y");
  terminal.Enter("SO PIN (PUK): ", "87654321");
  for (const char* const prompt : {"New PIN: ", "New PIN once more: ", "PIN: "})
    terminal.Enter(prompt, pin);
  WaitForSignature();
  EXPECT_EQ(CountPartsInMemory(terminal.program(), pin), 0U);
  ReadSignature([&] { terminal.ExpectExit(0); });
}

TEST_F(PinMemoryTest, ClearsGivenPins) {
  const std::string pin = LongPin('f');
  const Words so_pin = {"--so-pin-file", PinFile("87654321"), "--allow-unreported-tries"};
  for (const bool from_file : {true, false}) {
    SCOPED_TRACE(from_file ? "from a file" : "from a variable");
    Card("left=0 max-pin=96");
    Words new_pin = {"--new-pin-file", SecretFile("new-pin", pin + "\n")};
    if (!from_file) {
      environment_["NEW_PIN"] = pin;
      new_pin = {"--new-pin", "env:NEW_PIN"};
    }
    Write("log", "");
    Process process(SignToPipe(Concat(so_pin, new_pin)), environment_);
    WaitForSignature();
    EXPECT_EQ(CountPartsInMemory(process.pid(), pin),
              from_file || !kEnvironmentIsCopied ? 0U : pin.size() / kPartLength);
    EXPECT_GT(CountInMemory(process.pid(), File("pipe")), 0U);
    // The block of memory that the program got at its start.
    EXPECT_EQ(ReadFile("/proc/" + std::to_string(process.pid()) + "/environ").find(pin),
              std::string::npos);
    ReadSignature([&] { EXPECT_EQ(process.Wait().status, 0); });
  }
}

TEST_F(PinMemoryTest, ClearsUnusedPinsBeforeTheSignature) {
  const std::string so_pin = LongPin('g');
  const std::string new_pin = LongPin('h');
  Card("do=stop/C_SignInit");
  const Process process(
      SignCommand({"--pin-file", PinFile(), "--so-pin-file", SecretFile("so", so_pin + "\n"),
                   "--new-pin-file", SecretFile("new", new_pin + "\n")}),
      environment_);
  ASSERT_TRUE(WaitUntil([&] { return IsStopped(process.pid()); }));
  for (const std::string& pin : {so_pin, new_pin})
    EXPECT_EQ(CountPartsInMemory(process.pid(), pin), 0U) << pin;
}

// How a program ended that could write a core file of any size.
struct Crash {
  int signal = 0;
  bool dumped = false;  // written to a file, or to the program that handles core files
};

class CrashTest : public PinMemoryTest {
 protected:
  void SetUp() override {
    PinMemoryTest::SetUp();
    // The sanitizers neither handle the signals nor prevent core files.
    environment_["ASAN_OPTIONS"] =
        "handle_segv=0:handle_sigbus=0:handle_abort=0:disable_coredump=0:detect_leaks=0";
  }

  // Runs a program in a folder of its own, in which the kernel writes the core file.
  Crash Run(const Words& command) const {
    std::filesystem::remove_all(File("run"));
    std::filesystem::create_directory(File("run"));
    const pid_t test = getpid();
    const pid_t program = fork();
    if (program == 0) {
      support::DieWithParent(test);
      rlimit limit = {};
      getrlimit(RLIMIT_CORE, &limit);
      limit = geteuid() == 0 ? rlimit{RLIM_INFINITY, RLIM_INFINITY}
                             : rlimit{limit.rlim_max, limit.rlim_max};
      const int errors = open("/dev/null", O_WRONLY | O_CLOEXEC);
      if (chdir(File("run").c_str()) != 0 || setrlimit(RLIMIT_CORE, &limit) != 0 || errors < 0)
        _exit(126);
      dup2(errors, STDERR_FILENO);
      support::Execute(command, environment_);
    }
    int status = 0;
    waitpid(program, &status, 0);
    return {WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            WIFSIGNALED(status) && WCOREDUMP(status) != 0};
  }

  // Returns why no core files can be written or searched here, or null.
  static const char* WhyNoCoreFiles() {
    rlimit limit = {};
    if (kEnvironmentIsCopied)
      return "a core file of a program with a sanitizer is too large";
    if (geteuid() != 0 && getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_max != RLIM_INFINITY)
      return "core files are limited here";
    return nullptr;
  }

  // Counts the parts of the PIN in the core file, if there is one.
  std::size_t CountPartsInCoreFile(const std::string& pin) const {
    std::size_t count = 0;
    for (const auto& file : std::filesystem::directory_iterator(File("run"))) {
      const std::string content = ReadFile(file.path());
      for (std::size_t at = 0; at < pin.size(); at += kPartLength)
        count += content.find(pin.substr(at, kPartLength)) != std::string::npos ? 1 : 0;
    }
    return count;
  }

  // Unlocks the card, so that every PIN is used.
  Words UnlockCommand(const std::string& pin) const {
    return SignCommand({"--so-pin-file", PinFile("87654321"), "--new-pin-file",
                        SecretFile("new-pin", pin + "\n"), "--allow-unreported-tries"});
  }
};

TEST_F(CrashTest, LeavesACoreFileAsLongAsThereIsNoPin) {
  if (const char* const reason = WhyNoCoreFiles())
    GTEST_SKIP() << reason;
  environment_["TEXT"] = LongPin('x');
  Card("do=crash/C_GetSlotList");
  const Crash crash = Run(CardCommand({"list"}));
  EXPECT_EQ(crash.signal, SIGSEGV);
  EXPECT_TRUE(crash.dumped);
  if (ReadFile("/proc/sys/kernel/core_pattern").find_first_of("|/") == std::string::npos) {
    EXPECT_EQ(CountPartsInCoreFile(LongPin('x')), kPinLength / kPartLength);
  }
}

TEST_F(CrashTest, LeavesNoCoreFileAsLongAsAPinIsHeld) {
  const std::string pin = LongPin('i');
  for (const char* const when : {"do", "do-after"}) {
    for (const char* const function :
         {"C_Initialize", "C_GetInfo", "C_GetSlotList", "C_GetSlotInfo", "C_GetTokenInfo",
          "C_OpenSession", "C_CloseSession", "C_Login", "C_Logout", "C_InitPIN",
          "C_FindObjectsInit", "C_FindObjects", "C_FindObjectsFinal", "C_GetAttributeValue",
          "C_SignInit", "C_Sign"}) {
      SCOPED_TRACE(std::string(when) + " " + function);
      Card(std::string("left=0 max-pin=96 ") + when + "=crash/" + function);
      const Crash crash = Run(UnlockCommand(pin));
      EXPECT_EQ(crash.signal, SIGSEGV);
      EXPECT_FALSE(crash.dumped);
      EXPECT_TRUE(std::filesystem::is_empty(File("run")));
    }
  }
}

TEST_F(CrashTest, LeavesNoPinInALaterCoreFile) {
  if (const char* const reason = WhyNoCoreFiles())
    GTEST_SKIP() << reason;
  const std::string pin = LongPin('j');
  Card("left=0 max-pin=96 do=crash/C_Finalize");
  const Crash crash = Run(UnlockCommand(pin));
  EXPECT_EQ(crash.signal, SIGSEGV);
  EXPECT_TRUE(crash.dumped);  // There is a file to search.
  EXPECT_EQ(CountPartsInCoreFile(pin), 0U);
}

}  // namespace
