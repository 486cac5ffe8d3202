#include "host/logfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
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

Logfile::~Logfile() = default;

void Logfile::Log(std::string message, int level) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (level > max_level_)
    return;
  if (stream_ != nullptr) {
    // One write a line, so that lines of several processes with one file do not mix.
    const std::string line = Line(message, level);
    std::fwrite(line.data(), 1, line.size(), stream_);
    std::fflush(stream_);
  } else if (const std::shared_ptr<const Function> function = function_) {
    (*function)(message, level);
  }
}

void Logfile::SetMaxLevel(int level) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  max_level_ = level;
}

void Logfile::LogToNothing() {
  SetSink(nullptr, nullptr, nullptr);
}

void Logfile::LogToStandardError() {
  SetSink(stderr, nullptr, nullptr);
}

bool Logfile::LogToFile(const std::string& path) {
  const int descriptor =
      open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor < 0)
    return false;
  std::unique_ptr<std::FILE, Closer> file(fdopen(descriptor, "a"));
  if (!file) {
    close(descriptor);
    return false;
  }
  std::FILE* const stream = file.get();
  SetSink(stream, std::move(file), nullptr);
  return true;
}

void Logfile::LogToFunction(Function function) {
  SetSink(nullptr, nullptr,
          function ? std::make_shared<const Function>(std::move(function)) : nullptr);
}

void Logfile::SetSink(std::FILE* stream, std::unique_ptr<std::FILE, Closer> file,
                      std::shared_ptr<const Function> function) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  stream_ = stream;
  file_ = std::move(file);
  function_ = std::move(function);
}
