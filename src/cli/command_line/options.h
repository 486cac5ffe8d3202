// What the command line asks for. Texts are in UTF-8 except names of files, which are as given.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/pins/pin_source.h"

namespace cardcert::cli {

// Common to all commands that use a provider.
struct ProviderOptions {
  std::string module;                   // --module, in UTF-8
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
  bool allow_unreported_tries = false;
};

struct HelpOptions {
  std::string command;  // empty: the program
};

enum class Command { kList, kPresent, kWatch, kSign };

struct Options {
  Command command = Command::kList;
  ProviderOptions provider;
  ListOptions list;
  PresentOptions present;
  WatchOptions watch;
  SignOptions sign;
  HelpOptions help;
};

}  // namespace cardcert::cli
