// A message in a log file. Properties: whatever the message, it is one line, with its level, and
// can be read back from it.
#include <sys/mman.h>
#include <unistd.h>

#include "fuzzing.h"
#include "host/logfile.h"

namespace {

// A file without a name, and a log that writes to it.
class LogToMemory {
 public:
  LogToMemory() : descriptor_(memfd_create("log", 0)) {
    Check(descriptor_ >= 0 && log_.LogToFile("/proc/self/fd/" + std::to_string(descriptor_)),
          "there is a file");
  }

  std::string Log(const std::string& message, int level) {
    Check(ftruncate(descriptor_, 0) == 0, "the file is empty");
    log_.Log(message, level);
    std::string text(message.size() * 4 + 100, '\0');
    const ssize_t length = pread(descriptor_, text.data(), text.size(), 0);
    Check(length > 0, "something is written");
    text.resize(static_cast<std::size_t>(length));
    return text;
  }

 private:
  int descriptor_;
  Logfile log_;
};

// The message again, with every \xHH taken for a control character if it can be one.
std::string Unescaped(const std::string& text) {
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
  static LogToMemory* const memory = new LogToMemory;
  Input input(data, size);
  const int level = static_cast<int>(input.Below(6));
  const std::string message = input.Rest();
  const std::string line = memory->Log(message, level);

  const std::string prefix = "2026-01-31T23:59:59.123Z 3 ";
  Check(line.find('\n') == line.size() - 1, "a message is one line");
  Check(line.size() > prefix.size(), "a line begins with the time and the level");
  Check(line[prefix.size() - 2] == '0' + level, "a line has its level");
  const std::string text = line.substr(prefix.size(), line.size() - prefix.size() - 1);
  for (const char c : text)
    Check(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f, "no control character is left");
  if (message.find("\\x") == std::string::npos)
    Check(Unescaped(text) == message, "the message can be read back");
  return 0;
}
