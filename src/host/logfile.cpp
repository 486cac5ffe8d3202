#include "host/logfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <utility>

Logfile logfile;

namespace {

std::string TimeStamp() {
  using std::chrono::system_clock;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto since_epoch =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
  const int milliseconds = static_cast<int>((since_epoch % 1000 + 1000) % 1000);

  std::tm utc = {};
  gmtime_r(&seconds, &utc);
  char date[32] = {};
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
  char text[48] = {};
  std::snprintf(text, sizeof text, "%s.%03dZ", date, milliseconds);
  return text;
}

std::string Line(const std::string& message, int level) {
  std::string line = TimeStamp() + ' ' + std::to_string(level) + ' ';
  for (const char c : message) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      char escaped[8] = {};
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      line += escaped;
    } else {
      line += c;
    }
  }
  return line + '\n';
}

}  // namespace

Logfile::~Logfile() {
  LogToNothing();
}

void Logfile::Log(std::string message, int level) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (level > max_level_)
    return;
  if (descriptor_ >= 0) {
    WriteLine(Line(message, level));
  } else if (const std::shared_ptr<const Function> function = function_) {
    (*function)(message, level);
  }
}

// Writes each line with one write(), so that lines of several processes that share a file do not
// interleave.
void Logfile::WriteLine(const std::string& line) {
  const std::string text = line_incomplete_ ? '\n' + line : line;
  ssize_t written = 0;
  do {
    written = write(descriptor_, text.data(), text.size());
  } while (written < 0 && errno == EINTR);
  if (written > 0)
    line_incomplete_ = static_cast<std::size_t>(written) < text.size();
}

void Logfile::SetMaxLevel(int level) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  max_level_ = level;
}

void Logfile::LogToNothing() {
  SetSink(-1, false, nullptr);
}

void Logfile::LogToStandardError() {
  LogToDescriptor(STDERR_FILENO);
}

void Logfile::LogToDescriptor(int descriptor) {
  SetSink(descriptor, false, nullptr);
}

bool Logfile::LogToFile(const std::string& path) {
  const int descriptor =
      open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor < 0)
    return false;
  SetSink(descriptor, true, nullptr);
  return true;
}

void Logfile::LogToFunction(Function function) {
  SetSink(-1, false, function ? std::make_shared<const Function>(std::move(function)) : nullptr);
}

void Logfile::SetSink(int descriptor, bool owns_descriptor,
                      std::shared_ptr<const Function> function) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (owns_descriptor_)
    close(descriptor_);
  descriptor_ = descriptor;
  owns_descriptor_ = owns_descriptor;
  line_incomplete_ = false;
  function_ = std::move(function);
}
