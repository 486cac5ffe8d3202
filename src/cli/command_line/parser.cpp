#include "cli/command_line/parser.h"

#include <CLI/CLI.hpp>

#include <memory>

#include "cli/command_line/declarations.h"
#include "cli/command_line/help.h"
#include "cli/command_line/usage_error.h"
#include "cli/terminal/console.h"
#include "host/kvutils.h"

namespace cardcert::cli {
namespace {

constexpr struct {
  const char* name;
  Command command;
} kCommands[] = {
    {"list", Command::kList},
    {"present", Command::kPresent},
    {"watch", Command::kWatch},
    {"sign", Command::kSign},
};

// The parser and the options that it fills.
class Parser {
 public:
  Parser() {
    SetHelpFormat(&app_);
    DeclareCommands(&app_, &options_);
  }
  Parser(const Parser&) = delete;  // The parser points into the options.
  Parser& operator=(const Parser&) = delete;

  ParsedOptions Parse(int argc, const char* const* argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
      return PrintAndEnd(app_.help());
    } catch (const CLI::CallForVersion& version) {
      return PrintAndEnd(version.what() + std::string("\n"));
    } catch (const CLI::ParseError& error) {
      if (AsksForHelp())
        return PrintAndEnd(app_.help());
      PrintUsageError(app_, error, argc > 0 ? argv[argc - 1] : "");
      return {std::nullopt, kExitUsage};
    }
    const std::string name = app_.get_subcommands().front()->get_name();
    if (name == "help")
      return ShowHelp();
    for (const auto& known : kCommands) {
      if (name == known.name)
        options_.command = known.command;
    }
    ConvertToUtf8();
    return {options_, kExitSuccess};
  }

  const CLI::App& app() const { return app_; }

 private:
  static ParsedOptions PrintAndEnd(const std::string& text) {
    return {std::nullopt, PrintData(text) ? kExitSuccess : kExitFailed};
  }

  // Returns true if help is asked for on a command line that is not valid for another reason.
  bool AsksForHelp() const {
    for (const CLI::App* command : app_.get_subcommands()) {
      if (command->get_help_ptr()->count() > 0)
        return true;
    }
    return app_.get_help_ptr()->count() > 0;
  }

  ParsedOptions ShowHelp() const {
    const std::string& command = options_.help.command;
    if (command.empty())
      return PrintAndEnd(HelpText(""));  // app_.help() would be that of the command help.
    for (const CLI::App* known : app_.get_subcommands({})) {
      if (known->get_name() == command)
        return PrintAndEnd(known->help());
    }
    PrintUnknownCommand(app_, command);
    return {std::nullopt, kExitUsage};
  }

  void ConvertToUtf8() {
    const auto convert = [](std::string* text) { *text = KVUtils::Transcode("", "UTF-8", *text); };
    convert(&options_.provider.module);
    if (options_.provider.name)
      convert(&*options_.provider.name);
    for (std::string& filter : options_.provider.filters)
      convert(&filter);
  }

  CLI::App app_;
  Options options_;
};

}  // namespace

ParsedOptions ParseOptions(int argc, const char* const* argv) {
  return Parser().Parse(argc, argv);
}

std::string HelpText(const std::string& command) {
  const Parser parser;
  return command.empty() ? parser.app().help() : parser.app().get_subcommand(command)->help();
}

std::vector<std::string> CommandNames() {
  const Parser parser;
  std::vector<std::string> names;
  for (const CLI::App* command : parser.app().get_subcommands({}))
    names.push_back(command->get_name());
  return names;
}

std::vector<std::string> OptionNames(const std::string& command) {
  const Parser parser;
  std::vector<std::string> names;
  for (const CLI::Option* option : parser.app().get_subcommand(command)->get_options()) {
    for (const std::string& name : option->get_lnames())
      names.push_back("--" + name);
    for (const std::string& name : option->get_snames())
      names.push_back("-" + name);
  }
  return names;
}

}  // namespace cardcert::cli
