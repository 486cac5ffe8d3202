#include "cli/options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>

#include "cli/exit_status.h"
#include "cli/help.h"
#include "cli/output/encoding.h"
#include "cli/signature/digest_info.h"
#include "cli/terminal/console.h"
#include "host/kvutils.h"

namespace cardcert::cli {
namespace {

// CLI::Range writes its bounds with six decimals, and has nothing against "nan".
template <typename Number>
CLI::Validator NumberFrom(Number least, Number most) {
  return CLI::Validator(
      [least, most](const std::string& text) -> std::string {
        Number number = {};
        if (CLI::detail::lexical_cast(text, number) && number >= least && number <= most)
          return "";
        std::ostringstream fault;
        fault << Quoted(text) << " is no number from " << least << " to " << most;
        return fault.str();
      },
      "");
}

constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

// The parser with the options it fills; one object, since the parser points into the options.
class Parser {
 public:
  Parser() {
    app_.set_help_flag("-h,--help");
    app_.set_version_flag("--version", VersionText());
    app_.require_subcommand(1);
    AddList();
    AddPresent();
    AddWatch();
    AddSign();
  }

  void Parse(int argc, const char* const* argv) { app_.parse(argc, argv); }

  // Whether a command line that could not be parsed asks for help: "-h list" lacks a module, and
  // "help" is no command.
  bool AsksForHelp() const {
    const std::vector<std::string> words = app_.remaining();
    return app_.get_help_ptr()->count() > 0 || (!words.empty() && words.front() == "help");
  }

  // What to say of a command line that could not be parsed.
  std::string Explain(const CLI::ParseError& error) const {
    const std::string commands = ": list, present, watch or sign";
    const std::vector<std::string> words = app_.remaining();
    if (!words.empty() && IsOption(words.front()))
      return Quoted(OptionName(words.front())) + " has to come after a command" + commands;
    if (!app_.get_subcommands().empty()) {
      const std::vector<std::string> unexpected = app_.remaining(true);
      return unexpected.empty()
                 ? InOtherWords(error.what())
                 : Unexpected(app_.get_subcommands().front()->get_name(), unexpected);
    }
    if (words.empty())
      return "a command is needed" + commands;
    if (words.front().find_first_not_of(kLetters) != std::string::npos)
      return "there is no such command" + commands;
    return "there is no command " + Quoted(words.front()) + commands;
  }

  Options Take() {
    ToUtf8(&options_.provider.module);
    if (options_.provider.name)
      ToUtf8(&*options_.provider.name);
    for (std::string& filter : options_.provider.filters)
      ToUtf8(&filter);
    return options_;
  }

  std::vector<std::string> Words() const {
    std::vector<std::string> words;
    Collect(app_, &words);
    for (const CLI::App* command : app_.get_subcommands({})) {
      words.push_back(command->get_name());
      Collect(*command, &words);
    }
    return words;
  }

 private:
  // What a command has no use for. Only names of options are repeated: a PIN may stand behind a
  // mistyped one, or in its place.
  static std::string Unexpected(const std::string& command,
                                const std::vector<std::string>& unexpected) {
    std::string options;
    std::size_t num_others = 0;
    for (const std::string& word : unexpected) {
      if (IsOption(word))
        options += (options.empty() ? "" : ", ") + Quoted(OptionName(word));
      else
        ++num_others;
    }
    const std::string words =
        std::to_string(num_others) + (num_others == 1 ? " word" : " words") + " too many";
    if (options.empty())
      return command + " was given " + words;
    return command + " has no option " + options +
           (num_others > 0 ? ", and was given " + words : "");
  }

  static bool IsOption(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

  // The part of the word that is a name, and no value: "--pin" of "--pin=1", "-p" of "-p1".
  static std::string OptionName(const std::string& word) {
    const std::size_t num_dashes = word[1] == '-' ? 2 : 1;
    const std::size_t end =
        std::min(word.find_first_not_of(kLetters + std::string("-"), num_dashes), word.size());
    return word.substr(0, num_dashes == 1 ? std::min<std::size_t>(end, 2) : end);
  }

  // "--module: 1 required TEXT missing", "--module: At Most 1 required but received 2".
  static std::string InOtherWords(const std::string& text) {
    const std::string option = text.substr(0, text.find(':'));
    if (text.find(": 1 required ") != std::string::npos)
      return option + " needs a value";
    if (text.find(" was given a disallowed flag override") != std::string::npos)
      return "--" + text.substr(0, text.find(' ')) + " takes no value";
    if (text.find(": At Most 1 required ") != std::string::npos)
      return option + " is given more than once";
    return text;
  }

  static void ToUtf8(std::string* text) { *text = KVUtils::Transcode("", "UTF-8", *text); }

  static void Collect(const CLI::App& app, std::vector<std::string>* words) {
    for (const CLI::Option* option : app.get_options()) {
      for (const std::string& name : option->get_lnames())
        words->push_back("--" + name);
      for (const std::string& name : option->get_snames())
        words->push_back("-" + name);
    }
  }

  CLI::App* AddCommand(const std::string& name, Command command) {
    CLI::App* const app = app_.add_subcommand(name);
    app->parse_complete_callback([this, command] { options_.command = command; });
    ProviderOptions& provider = options_.provider;
    app->add_option("-m,--module", provider.module)->required();
    app->add_option("--name", provider.name);
    app->add_option("--log-level", provider.log_level)->check(NumberFrom(0, 5));
    app->add_option("--log-file", provider.log_file);
    return app;
  }

  static void AddFlag(CLI::App* app, const std::string& name, bool* flag) {
    app->add_flag(name, *flag)->disable_flag_override();
  }

  void AddFilters(CLI::App* app) {
    app->add_option("--filter", options_.provider.filters)->allow_extra_args(false);
  }

  void AddList() {
    CLI::App* const app = AddCommand("list", Command::kList);
    AddFilters(app);
    AddFlag(app, "--matching", &options_.list.matching);
    AddFlag(app, "--json", &options_.list.json);
  }

  void AddPresent() {
    CLI::App* const app = AddCommand("present", Command::kPresent);
    app->add_option("SERIAL", options_.present.serial)->required();
  }

  void AddWatch() {
    CLI::App* const app = AddCommand("watch", Command::kWatch);
    AddFilters(app);
    AddFlag(app, "--json", &options_.watch.json);
    app->add_option("--interval", options_.watch.interval)->check(NumberFrom(0.05, 86400.0));
    app->add_option("--count", options_.watch.count)->check(NumberFrom(1UL, 1000000000UL));
  }

  void AddSign() {
    CLI::App* const app = AddCommand("sign", Command::kSign);
    SignOptions& sign = options_.sign;
    app->add_option("SERIAL", sign.serial)->required();
    app->add_option("--in", sign.in);
    app->add_option("--out", sign.out);
    app->add_option("--digest", sign.digest)->check(CLI::IsMember(DigestNames()));
    app->add_option("--encoding", sign.encoding)->check(CLI::IsMember(EncodingNames()));
    AddPin(app, "--pin", &sign.pin);
    AddPin(app, "--so-pin", &sign.so_pin);
    AddPin(app, "--new-pin", &sign.new_pin);
    AddFlag(app, "--batch", &sign.batch);
  }

  static void AddPin(CLI::App* app, const std::string& name, PinSource* source) {
    CLI::Option* const variable = app->add_option(name, source->variable);
    app->add_option(name + "-file", source->file)->excludes(variable);
  }

  CLI::App app_;
  Options options_;
};

}  // namespace

ParsedOptions ParseOptions(int argc, const char* const* argv) {
  Parser parser;
  try {
    parser.Parse(argc, argv);
    return {parser.Take(), kExitSuccess};
  } catch (const CLI::CallForHelp&) {
    return {std::nullopt, PrintData(HelpText()) ? kExitSuccess : kExitFailed};
  } catch (const CLI::CallForVersion&) {
    return {std::nullopt, PrintData(VersionText() + "\n") ? kExitSuccess : kExitFailed};
  } catch (const CLI::ParseError& error) {
    if (parser.AsksForHelp())
      return {std::nullopt, PrintData(HelpText()) ? kExitSuccess : kExitFailed};
    PrintError(parser.Explain(error));
    PrintHint("see cardcert --help");
    return {std::nullopt, kExitUsage};
  }
}

std::vector<std::string> KnownWords() {
  return Parser().Words();
}

}  // namespace cardcert::cli
