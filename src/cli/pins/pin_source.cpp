#include "cli/pins/pin_source.h"

#include <fcntl.h>
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

// Returns the name in "env:NAME", or null for anything else.
const char* VariableName(const PinSource& source) {
  if (!source.variable || source.variable->compare(0, kVariablePrefixLen, kVariablePrefix) != 0)
    return nullptr;
  return source.variable->c_str() + kVariablePrefixLen;
}

// Reads bytes of a PIN, one at a time. The byte is cleared in the end, as the PIN is.
class ByteReader {
 public:
  explicit ByteReader(int descriptor) : descriptor_(descriptor) {}
  ~ByteReader() { explicit_bzero(&byte_, sizeof byte_); }
  ByteReader(const ByteReader&) = delete;
  ByteReader& operator=(const ByteReader&) = delete;

  // Returns 1, 0 at the end of the file, or -1 with errno set, as read(2) does.
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

// Reads the only line of a file. Returns null, or why it is not usable.
const char* ReadOnlyLine(int descriptor, Secret* line) {
  ByteReader input(descriptor);
  bool carriage_return = false;  // not appended yet: it may belong to the line break
  for (;;) {
    const ssize_t result = input.Read();
    if (result < 0)
      return std::strerror(errno);
    if (result == 0)
      break;
    if (input.byte() == '\n')
      return input.Read() == 0 ? nullptr : "it has more than one line";
    if (input.byte() == '\0')
      return "it contains a zero byte, so it is not plain text";
    if (line->too_long())
      return nullptr;  // The caller reports that.
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
          ? "it is a terminal, which would show the PIN; without this option the PIN is asked for"
            " and not shown"
          : ReadOnlyLine(descriptor, pin);
  close(descriptor);
  return fault != nullptr || !pin->BeginsWith("\xef\xbb\xbf")
             ? fault
             : "it begins with a byte order mark, which would become part of the PIN";
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
  // The message does not repeat the value of --pin, which may be the PIN itself.
  if (!source.file && variable == nullptr) {
    PrintError(option +
               " takes env:NAME, the name of an environment variable, because other users" +
               " can read the command line");
    PrintHint(option + "-file FILE reads the PIN from a file");
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
  // The name is not repeated either: it may be a PIN that was given by mistake.
  PrintError("cannot read the PIN of " + option + (source.file ? "-file: " : ": ") + fault);
  return nullptr;
}

void ClearPinVariable(const PinSource& source) {
  const char* const name = VariableName(source);
  char* const value = name != nullptr ? std::getenv(name) : nullptr;
  if (value == nullptr)
    return;
  explicit_bzero(value, std::strlen(value));
  unsetenv(name);
}

}  // namespace cardcert::cli
