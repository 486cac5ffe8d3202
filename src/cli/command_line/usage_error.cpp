#include "cli/command_line/usage_error.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <string>
#include <vector>

#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr char kDigits[] = "0123456789";

bool IsOption(const std::string& word) {
  return word.size() > 1 && word[0] == '-';
}

// Returns the part of the word that is a name, without a value: "--pin" of "--pin=1", "-p" of
// "-p1".
std::string OptionName(const std::string& word) {
  const std::size_t num_dashes = word[1] == '-' ? 2 : 1;
  const std::size_t end =
      std::min(word.find_first_not_of(kLetters + std::string("-"), num_dashes), word.size());
  return word.substr(0, num_dashes == 1 ? std::min<std::size_t>(end, 2) : end);
}

std::string Commands(const CLI::App& app) {
  std::string commands;
  for (const CLI::App* command : app.get_subcommands({}))
    commands += (commands.empty() ? "" : ", ") + command->get_name();
  return commands;
}

// About words that `command` does not know.
std::string UnexpectedWords(const CLI::App& command, const std::vector<std::string>& words) {
  std::vector<std::string> options;
  for (const std::string& word : words) {
    if (IsOption(word))
      options.push_back(Quoted(OptionName(word)));
  }
  if (!options.empty()) {
    std::string message = command.get_name() + " has no option " + options.front();
    for (std::size_t i = 1; i < options.size(); ++i)
      message += (i + 1 == options.size() ? " or " : ", ") + options[i];
    return message;
  }
  const std::string& word = words.front();
  const bool takes_pins = command.get_option_no_throw("--pin") != nullptr;
  if (takes_pins || word.find_first_of(kDigits) != std::string::npos)
    return "unexpected argument for " + command.get_name();
  return "unexpected argument " + Quoted(word) + " for " + command.get_name();
}

std::string MissingOption(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_required() && option->count() == 0)
      return command.get_name() + " needs " + option->get_name() +
             (option->get_positional() ? "" : " " + option->get_type_name());
  }
  return command.get_name() + " needs more options";
}

std::string ExcludedOption(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options()) {
    for (const CLI::Option* excluded : option->get_excludes()) {
      if (option->count() > 0 && excluded->count() > 0)
        return option->get_name() + " and " + excluded->get_name() + " exclude each other";
    }
  }
  return "these options exclude each other";
}

// An option is repeated that may be given once, or the last word is an option without its value.
std::string WrongCount(const CLI::App& command, const std::string& last_word) {
  for (const CLI::Option* option : command.get_options()) {
    if (option->count() > static_cast<std::size_t>(std::max(option->get_items_expected_max(), 1)))
      return option->get_name() + " is given more than once";
  }
  const CLI::Option* const last = command.get_option_no_throw(last_word);
  return (last != nullptr ? last->get_name() : "the last option") + " needs a value";
}

std::string CommandMessage(const CLI::App& command, const CLI::ParseError& error,
                           const std::string& last_word) {
  const std::vector<std::string> unexpected = command.remaining();
  if (!unexpected.empty())
    return UnexpectedWords(command, unexpected);
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr)
    return MissingOption(command);
  if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr)
    return ExcludedOption(command);
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr)
    return WrongCount(command, last_word);
  if (dynamic_cast<const CLI::ValidationError*>(&error) != nullptr)
    return error.what();  // "--option: " and the message of a check in values.h
  return "the command line is not valid";
}

}  // namespace

void PrintUsageError(const CLI::App& app, const CLI::ParseError& error,
                     const std::string& last_word) {
  const std::vector<std::string> words = app.remaining();
  if (!words.empty() && !IsOption(words.front())) {
    PrintUnknownCommand(app, words.front());
  } else if (!words.empty()) {
    PrintError(Quoted(OptionName(words.front())) + " must come after a command: " + Commands(app));
    PrintHint("see cardcert --help");
  } else if (app.get_subcommands().empty()) {
    PrintError("a command is needed: " + Commands(app));
    PrintHint("see cardcert --help");
  } else {
    const CLI::App& command = *app.get_subcommands().front();
    PrintError(CommandMessage(command, error, last_word));
    PrintHint("see cardcert " + command.get_name() + " --help");
  }
}

void PrintUnknownCommand(const CLI::App& app, const std::string& name) {
  const bool is_word = name.find_first_not_of(kLetters) == std::string::npos;
  PrintError("there is no " + (is_word ? "command " + Quoted(name) : "such command") + ": use " +
             Commands(app));
  PrintHint("see cardcert --help");
}

}  // namespace cardcert::cli
