#include "cli/pins/pin_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "cli/files/held_file.h"
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

// Reads the only line of a file. Returns null, or why it is not usable.
const char* ReadOnlyLine(int descriptor, Secret* line) {
  const auto read_byte = [&] { return RetryOnSignal([&] { return line->ReadByte(descriptor); }); };
  bool carriage_return = false;  // not appended yet: it may belong to the line break
  for (;;) {
    const ssize_t result = read_byte();
    if (result < 0)
      return std::strerror(errno);
    if (result == 0)
      break;
    if (line->byte() == '\n')
      return read_byte() == 0 ? nullptr : "it has more than one line";
    if (line->byte() == '\0')
      return "it contains a zero byte, so it is not plain text";
    if (line->too_long())
      return nullptr;  // The caller reports that.
    if (std::exchange(carriage_return, line->byte() == '\r'))
      line->Append('\r');
    if (!carriage_return)
      line->Append(line->byte());
  }
  if (carriage_return)
    line->Append('\r');
  return nullptr;
}

// Returns what other users can do with the file, or null if it is private.
const char* Exposure(const struct stat& file) {
  // These bits do not protect a terminal, a device or a socket.
  if (!S_ISREG(file.st_mode) && !S_ISFIFO(file.st_mode))
    return nullptr;
  if (file.st_uid != geteuid() && file.st_uid != 0)
    return "belongs to another user, who can read and change it";
  if ((file.st_mode & (S_IRGRP | S_IROTH)) != 0)
    return "can be read by other users; the permissions 0600 protect it";
  if ((file.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    return "can be changed by other users; the permissions 0600 protect it";
  return nullptr;
}

const char* ReadFile(const std::string& path, const char** exposure, Secret* pin) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0)
    return std::strerror(errno);
  struct stat info = {};
  *exposure = fstat(descriptor, &info) == 0 ? Exposure(info) : nullptr;
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
  const char* exposure = nullptr;
  const char* fault = source.file ? ReadFile(*source.file, &exposure, pin.get())
                                  : ReadVariable(variable, pin.get());
  if (fault == nullptr && pin->too_long())
    fault = "it is longer than 128 bytes";
  if (fault == nullptr && pin->length() == 0)
    fault = "it is empty";
  if (fault == nullptr) {
    if (exposure != nullptr)
      PrintWarning("the file of " + option + "-file " + exposure);
    return pin;
  }
  // The name is not repeated either: it may be a PIN that was given by mistake.
  PrintError("cannot read the PIN of " + option + (source.file ? "-file: " : ": ") + fault);
  return nullptr;
}

void ClearPinVariable(const PinSource& source) {
  const char* const name = VariableName(source);
  if (name == nullptr || *name == '\0')
    return;
  const std::size_t length = std::strlen(name);
  // A program may be started with several entries of the same name.
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, name, length) == 0 && (*entry)[length] == '=')
      explicit_bzero(*entry + length + 1, std::strlen(*entry + length + 1));
  }
  unsetenv(name);
}

}  // namespace cardcert::cli
