// Searches the program's memory for PINs after they have been used.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
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
    Words new_pin = {"--new-pin-file", Write("new-pin", pin + "\n")};
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
    ReadSignature([&] { EXPECT_EQ(process.Wait().status, 0); });
  }
}

}  // namespace
