// Fuzz target: a message in a log file. The first byte chooses the level, the rest is the message.
// Property: any message becomes one line with its level, from which it can be read back.
#include <sys/mman.h>
#include <unistd.h>

#include "fuzzing.h"
#include "host/logfile.h"

namespace {

// A Logfile that writes to a file in memory.
class MemoryLog {
 public:
  MemoryLog() : descriptor_(memfd_create("log", 0)) {
    Check(descriptor_ >= 0 && log_.LogToFile("/proc/self/fd/" + std::to_string(descriptor_)),
          "the log file can be opened");
  }

  // Returns what the log writes for the message.
  std::string Log(const std::string& message, int level) {
    Check(ftruncate(descriptor_, 0) == 0, "the log file can be truncated");
    log_.Log(message, level);
    std::string text(message.size() * 4 + 100, '\0');
    const ssize_t length = pread(descriptor_, text.data(), text.size(), 0);
    Check(length > 0, "the message is written");
    text.resize(static_cast<std::size_t>(length));
    return text;
  }

 private:
  int descriptor_;
  Logfile log_;
};

// Replaces every \xHH that stands for a control character with that character.
std::string Unescape(const std::string& text) {
  std::string message;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 2, "\\x") == 0 && i + 4 <= text.size()) {
      const long byte = std::strtol(text.substr(i + 2, 2).c_str(), nullptr, 16);
      if (byte < 0x20 || byte == 0x7f) {
        message += static_cast<char>(byte);
        i += 3;
        continue;
      }
    }
    message += text[i];
  }
  return message;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryLog* const log = new MemoryLog;
  Input input(data, size);
  const int level = static_cast<int>(input.Below(6));
  const std::string message = input.Rest();
  const std::string line = log->Log(message, level);

  const std::string prefix = "2026-01-31T23:59:59.123Z 3 ";
  Check(line.find('\n') == line.size() - 1, "a message is one line");
  Check(line.size() > prefix.size(), "a line begins with the time and the level");
  Check(line[prefix.size() - 2] == '0' + level, "a line shows the level of the message");
  const std::string text = line.substr(prefix.size(), line.size() - prefix.size() - 1);
  for (const char c : text)
    Check(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f,
          "a line contains no control characters");
  if (message.find("\\x") == std::string::npos)
    Check(Unescape(text) == message, "the message can be read back from the line");
  return 0;
}
