// No PIN stays in the program's memory once it has been used.
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

// How often `text` stands in the writable memory of a process.
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
    // In pieces that overlap: a sanitizer's memory is mapped in terabytes, and mostly is not there.
    constexpr std::size_t kPiece = 1 << 20;
    if (end - begin > (1UL << 32))
      continue;
    std::string piece(kPiece + text.size(), '\0');
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

// The sanitizers' run-time library keeps a copy of the environment of its own.
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
  // The program with its output in a pipe that nobody reads yet: it has signed, and waits.
  static void WaitForSignature(const std::string& log) {
    for (int i = 0; i < 1000; ++i) {
      if (ReadFile(log).find("Signature operation completed") != std::string::npos)
        return;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    FAIL() << "no signature";
  }
};

TEST_F(PinMemoryTest, SearchFindsTextInMemory) {
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("PIN: "));
  EXPECT_GT(CountInMemory(terminal.program(), "Scripted reader"), 0U);
  // An option's value is on the program's stack.
  EXPECT_GT(CountInMemory(terminal.program(), File("sig")), 0U);
}

TEST_F(PinMemoryTest, ClearsTypedPins) {
  const std::string wrong = "qzx81-wrong";
  const std::string wrong_so = "qzx82-wrong-so";
  const std::string new_pin = "qzx83-new";
  const std::string retyped = "qzx84-retyped";
  Card("left=0");
  PseudoTerminal unlock(Sign(), environment_);
  ASSERT_TRUE(unlock.Shows("[y/N] "));
  unlock.Type("y\n");
  ASSERT_TRUE(unlock.Shows("SO PIN (PUK): "));
  unlock.Type(wrong_so + "\n");
  ASSERT_TRUE(unlock.Shows("SO PIN (PUK): "));
  unlock.Type("87654321\n");
  ASSERT_TRUE(unlock.Shows("New PIN: "));
  unlock.Type(new_pin + "\n");
  ASSERT_TRUE(unlock.Shows("New PIN once more: "));
  unlock.Type(retyped + "\n");
  ASSERT_TRUE(unlock.Shows("New PIN: "));
  unlock.Type(new_pin + "\n");
  ASSERT_TRUE(unlock.Shows("New PIN once more: "));
  unlock.Type(new_pin + "\n");
  ASSERT_TRUE(unlock.Shows("PIN: "));
  unlock.Type(wrong + "\n");
  ASSERT_TRUE(unlock.Shows("PIN: "));
  for (const std::string& pin : {wrong, wrong_so, new_pin, retyped})
    EXPECT_EQ(CountInMemory(unlock.program(), pin), 0U) << pin;
  EXPECT_EQ(CountInMemory(unlock.program(), "qzx8"), 0U);
}

TEST_F(PinMemoryTest, ClearsTheLastTypedPin) {
  // Nothing is asked after it that could overwrite it.
  ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
  Card("left=0");
  Write("log", "");
  PseudoTerminal terminal(WithCard({"sign", "4fa107", "--in", Write("in", "x"), "--out",
                                    File("pipe"), "--log-file", File("log")}),
                          environment_);
  ASSERT_TRUE(terminal.Shows("[y/N] "));
  terminal.Type("y\n");
  ASSERT_TRUE(terminal.Shows("SO PIN (PUK): "));
  terminal.Type("87654321\n");
  for (const char* const prompt : {"New PIN: ", "New PIN once more: ", "PIN: "}) {
    ASSERT_TRUE(terminal.Shows(prompt));
    terminal.Type("qzx86-last\n");
  }
  WaitForSignature(File("log"));
  EXPECT_EQ(CountInMemory(terminal.program(), "qzx86"), 0U);
  std::ifstream reader(File("pipe"));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}).size(), 256U);
  EXPECT_EQ(terminal.Wait(), 0);
}

TEST_F(PinMemoryTest, ClearsGivenPins) {
  ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
  for (const bool from_file : {true, false}) {
    SCOPED_TRACE(from_file);
    Card("left=0");
    environment_["NEW_PIN"] = "qzx85-new";
    Words command = {
        "sign",       "4fa107",     "--in",      Write("in", "x"), "--out",
        File("pipe"), "--log-file", File("log"), "--so-pin-file",  Write("so", "87654321\n")};
    if (from_file)
      command.insert(command.end(), {"--new-pin-file", Write("new", "qzx85-new\n")});
    else
      command.insert(command.end(), {"--new-pin", "env:NEW_PIN"});
    if (from_file)
      environment_.erase("NEW_PIN");
    Write("log", "");
    Process process(WithCard(command), environment_);
    WaitForSignature(File("log"));
    EXPECT_EQ(CountInMemory(process.pid(), "qzx85"), from_file || !kEnvironmentIsCopied ? 0U : 1U);
    EXPECT_GT(CountInMemory(process.pid(), File("pipe")), 0U);
    std::ifstream reader(File("pipe"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}).size(), 256U);
    EXPECT_EQ(process.Wait().status, 0);
  }
}

}  // namespace
