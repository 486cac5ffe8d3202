// The command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/pins/pin_source.h"

namespace cardcert::cli {

// What every command that uses a provider understands. Texts are in UTF-8, whatever encoding the
// command line came in.
struct ProviderOptions {
  std::string module;                   // --module
  std::optional<std::string> name;      // --name
  std::vector<std::string> filters;     // --filter
  std::optional<int> log_level;         // --log-level
  std::optional<std::string> log_file;  // --log-file
};

struct ListOptions {
  bool matching = false;
  bool json = false;
};

struct PresentOptions {
  std::string serial;
};

struct WatchOptions {
  bool json = false;
  double interval = 1;      // seconds between two looks
  unsigned long count = 0;  // looks; 0: no end
};

struct SignOptions {
  std::string serial;
  std::string in = "-";
  std::string out = "-";
  std::string digest = "sha256";
  std::string encoding = "raw";
  PinSource pin;
  PinSource so_pin;
  PinSource new_pin;
  bool batch = false;
};

enum class Command { kList, kPresent, kWatch, kSign };

struct Options {
  Command command = Command::kList;
  ProviderOptions provider;
  ListOptions list;
  PresentOptions present;
  WatchOptions watch;
  SignOptions sign;
};

// Reads the command line. An exit status instead of a command when there is nothing left to do:
// help or the version was printed, or something was wrong and has been complained about.
struct ParsedOptions {
  std::optional<Options> options;
  int exit_status = 0;
};
ParsedOptions ParseOptions(int argc, const char* const* argv);

// The names of all options and commands that the parser knows, as they are typed.
std::vector<std::string> KnownWords();

}  // namespace cardcert::cli
