#include "cli/command_line/help.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace cardcert::cli {
namespace {

constexpr std::size_t kWidth = 80;
constexpr std::size_t kDescriptionColumn = 23;

constexpr char kExitStatuses[] = R"(
Exit status:
  0  success; for list also if there are no certificates
  1  failure
  2  the command line is not valid, or a file that it names cannot be used;
     nothing was touched
  3  the provider cannot be loaded
  4  no token has a certificate with the serial number; for present also if its
     token cannot be opened for reading and writing
  5  several different certificates have the serial number
  6  cancelled, or a PIN was needed and there was no way to ask for it
  7  a PIN was wrong, or refused for its length or form
  8  a PIN is locked
  9  a PIN was not tried, because a wrong one would have locked it

Examples:
  cardcert list -m /usr/lib/softhsm/libsofthsm2.so
  cardcert present 4fa107 -m opensc-pkcs11.so
  cardcert sign 4fa107 -m opensc-pkcs11.so --in letter.pdf --out letter.sig

cardcert COMMAND --help describes the options of a command.
)";

// Breaks `text` into lines that end at kWidth and are indented by `indent`. The first line begins
// behind `column` characters that are written already.
std::string Wrapped(const std::string& text, std::size_t indent, std::size_t column) {
  std::string wrapped;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const bool at_start = column <= indent;
    if (!at_start && column + 1 + word.size() > kWidth) {
      wrapped += "\n";
      column = 0;
    } else if (!at_start) {
      wrapped += ' ';
      ++column;
    }
    if (column < indent) {
      wrapped.append(indent - column, ' ');
      column = indent;
    }
    wrapped += word;
    column += word.size();
  }
  return wrapped + "\n";
}

// One entry: a name, and its description in the right column.
std::string Entry(const std::string& name, const std::string& description) {
  std::string entry = "  " + name;
  std::size_t column = entry.size();
  if (column + 2 > kDescriptionColumn) {
    entry += "\n";
    column = 0;
  }
  return entry + Wrapped(description, kDescriptionColumn, column);
}

std::string OptionTitle(const CLI::Option& option) {
  if (option.get_positional())
    return option.get_name(true);
  std::string title;
  for (const std::string& name : option.get_snames())
    title += "-" + name + ", ";
  title += "--" + option.get_lnames().front();
  const std::string value = option.get_type_name();
  return title + (option.get_items_expected_max() == 0 || value.empty() ? "" : " " + value);
}

std::string OptionGroup(const CLI::App& app, const std::string& group, const std::string& title) {
  std::string entries;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group() == group)
      entries += Entry(OptionTitle(*option), option->get_description());
  }
  return entries.empty() ? "" : "\n" + title + ":\n" + entries;
}

std::string Usage(const CLI::App& app) {
  std::string usage = "Usage: cardcert " + app.get_name();
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional())
      usage += option->get_required() ? " " + option->get_name(true)
                                      : " [" + option->get_name(true) + "]";
  }
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_required() && !option->get_positional())
      usage += " " + option->get_name() + " " + option->get_type_name();
  }
  return usage + " [OPTION]...\n";
}

std::string CommandHelp(const CLI::App& app) {
  std::string help = Usage(app) + "\n" + Wrapped(app.get_description(), 0, 0);
  help += OptionGroup(app, "Options", "Options");
  for (const std::string& group : app.get_groups()) {
    if (group != "Options")
      help += OptionGroup(app, group, group);
  }
  const std::string examples = app.get_footer();
  return help + (examples.empty() ? "" : "\nExamples:\n" + examples);
}

std::string FirstSentence(const std::string& text) {
  const std::string sentence = text.substr(0, std::min(text.find(". "), text.find(": ")));
  return sentence.back() == '.' ? sentence : sentence + ".";
}

std::string ProgramHelp(const CLI::App& app) {
  std::string help =
      app.get_description() + "\n\nUsage: cardcert COMMAND [OPTION]...\n\nCommands:\n";
  for (const CLI::App* command : app.get_subcommands({}))
    help += Entry(command->get_name(), FirstSentence(command->get_description()));
  return help + OptionGroup(app, "Options", "Options") + kExitStatuses;
}

}  // namespace

void SetHelpFormat(CLI::App* app) {
  app->formatter_fn([](const CLI::App* shown, const std::string&, CLI::AppFormatMode) {
    return shown->get_parent() == nullptr ? ProgramHelp(*shown) : CommandHelp(*shown);
  });
}

}  // namespace cardcert::cli
