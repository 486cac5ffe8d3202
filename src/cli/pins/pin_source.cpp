#include "cli/pins/pin_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

constexpr char kVariablePrefix[] = "env:";
constexpr std::size_t kVariablePrefixLen = sizeof kVariablePrefix - 1;

// The name in "env:NAME"; null for anything else.
const char* VariableName(const PinSource& source) {
  if (!source.variable || source.variable->compare(0, kVariablePrefixLen, kVariablePrefix) != 0)
    return nullptr;
  return source.variable->c_str() + kVariablePrefixLen;
}

// One byte on its way from a descriptor, cleared like the PIN that it belongs to.
class ByteReader {
 public:
  explicit ByteReader(int descriptor) : descriptor_(descriptor) {}
  ~ByteReader() { explicit_bzero(&byte_, sizeof byte_); }
  ByteReader(const ByteReader&) = delete;
  ByteReader& operator=(const ByteReader&) = delete;

  // As read(2): 1, 0 at the end, -1 with errno.
  ssize_t Read() {
    ssize_t result = 0;
    do {
      result = read(descriptor_, &byte_, 1);
    } while (result < 0 && errno == EINTR);
    return result;
  }
  unsigned char byte() const { return byte_; }

 private:
  int descriptor_;
  unsigned char byte_ = 0;
};

// Null, or what is wrong with the line.
const char* ReadOnlyLine(int descriptor, Secret* line) {
  ByteReader input(descriptor);
  bool carriage_return = false;  // Held back: it may be half of the line's end.
  for (;;) {
    const ssize_t result = input.Read();
    if (result < 0)
      return std::strerror(errno);
    if (result == 0)
      break;
    if (input.byte() == '\n')
      return input.Read() == 0 ? nullptr : "it has more than one line";
    if (input.byte() == '\0')
      return "it holds a zero byte: it has to be plain text";
    if (line->too_long())
      return nullptr;  // Enough is known.
    if (std::exchange(carriage_return, input.byte() == '\r'))
      line->Append('\r');
    if (!carriage_return)
      line->Append(input.byte());
  }
  if (carriage_return)
    line->Append('\r');
  return nullptr;
}

const char* ReadFile(const std::string& path, Secret* pin) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0)
    return std::strerror(errno);
  const char* const fault =
      isatty(descriptor)
          ? "it is a terminal, where the PIN would be seen; without this option it is"
            " asked for unseen"
          : ReadOnlyLine(descriptor, pin);
  close(descriptor);
  return fault != nullptr || !pin->BeginsWith("\xef\xbb\xbf")
             ? fault
             : "it begins with a byte order mark, which would be taken for a part of the PIN";
}

const char* ReadVariable(const char* name, Secret* pin) {
  const char* const value = std::getenv(name);
  if (value == nullptr)
    return "there is no such environment variable";
  for (const char* c = value; *c != '\0'; ++c)
    pin->Append(static_cast<unsigned char>(*c));
  return nullptr;
}

}  // namespace

std::unique_ptr<Secret> ReadPin(const PinSource& source, const std::string& option) {
  const char* const variable = VariableName(source);
  // What follows --pin is not repeated in a message: it may be the PIN itself.
  if (!source.file && variable == nullptr) {
    PrintError(option +
               " takes env:NAME, the name of an environment variable, since others can read" +
               " a command line; " + option + "-file takes a file");
    return nullptr;
  }

  auto pin = std::make_unique<Secret>();
  const char* fault =
      source.file ? ReadFile(*source.file, pin.get()) : ReadVariable(variable, pin.get());
  if (fault == nullptr && pin->too_long())
    fault = "it is longer than 128 bytes";
  if (fault == nullptr && pin->length() == 0)
    fault = "it is empty";
  if (fault == nullptr)
    return pin;
  // Nor is the name, here: with a PIN in its place there is no such file, and no such variable.
  PrintError("no PIN from the " +
             (source.file ? "file of " + option + "-file" : "variable of " + option) + ": " +
             fault);
  return nullptr;
}

bool ReadsStandardInput(const PinSource& source) {
  struct stat file = {};
  struct stat input = {};
  return source.file && stat(source.file->c_str(), &file) == 0 &&
         fstat(STDIN_FILENO, &input) == 0 && file.st_dev == input.st_dev &&
         file.st_ino == input.st_ino;
}

void ForgetPinVariable(const PinSource& source) {
  const char* const name = VariableName(source);
  char* const value = name != nullptr ? std::getenv(name) : nullptr;
  if (value == nullptr)
    return;
  explicit_bzero(value, std::strlen(value));
  unsetenv(name);
}

}  // namespace cardcert::cli
