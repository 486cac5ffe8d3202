#include "cli/commands/provider.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <map>
#include <utility>

#include "cli/terminal/console.h"
#include "host/kvutils.h"

namespace cardcert::cli {
namespace {

void PrintRefusal(const std::string& option, const std::string& value,
                  const std::vector<Problem>& reasons) {
  std::string message = option + " " + Quoted(value);
  for (const Problem& reason : reasons)
    message += ": " + reason.message;
  PrintError(message);
  PrintHint("see cardcert --help for the form of " + option);
}

// The number that `text` is, whole; nothing for any other text, or when it is out of range.
std::optional<int> WholeNumber(const std::string& text) {
  int number = 0;
  const std::size_t sign = text.size() > 1 && text[0] == '+' && text[1] != '-' ? 1 : 0;
  const auto [end, error] = std::from_chars(text.data() + sign, text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size())
    return std::nullopt;
  return number;
}

// The component takes any text for an attribute's name. One with a blank, as it comes behind a
// comma, no certificate has.
void WarnOfBlanks(const std::string& filter, const pkcs11_certificate_filter& parsed) {
  for (const auto& [name, value] : parsed.issuer_attributes) {
    if (name.find(' ') != std::string::npos)
      PrintWarning("note: no attribute has the name " + Quoted(name) + " of --filter " +
                   Quoted(filter) + ", so that no certificate matches");
  }
}

// It takes any text for a key usage, too, and reads what it can of it. That is easily meant
// otherwise.
void WarnOfMisreadKeyUsage(const std::string& filter, int key_usage) {
  std::list<std::string> fields;
  if (!KVUtils::DecodeStringList(filter, &fields, '|') || fields.size() != 3)
    return;
  if (WholeNumber(fields.back()))
    return;
  PrintWarning("note: the key usage " + Quoted(fields.back()) + " of --filter " + Quoted(filter) +
               " is no number, or out of range: it counts as " + std::to_string(key_usage) +
               (key_usage == 0 ? ", no requirement" : ""));
}

bool ApplyNamesAndFilters(const ProviderOptions& options, ComponentLog* log, PKCS11Module* module) {
  if (options.name && !module->SetNameComponents(options.name->c_str())) {
    PrintRefusal("--name", *options.name, log->TakeProblems());
    return false;
  }
  for (const std::string& filter : options.filters) {
    if (!module->AddFilter(filter)) {
      PrintRefusal("--filter", filter, log->TakeProblems());
      return false;
    }
  }
  auto added = module->filters.begin();
  for (const std::string& filter : options.filters) {
    WarnOfBlanks(filter, *added);
    WarnOfMisreadKeyUsage(filter, added++->key_usage);
  }
  return true;
}

// Why the path is not that of a file that can be loaded; empty when it is.
std::string FaultOfPath(const std::string& name) {
  struct stat info = {};
  if (stat(name.c_str(), &info) != 0)
    return errno == ENOENT ? "there is no such file" : std::strerror(errno);
  if (S_ISDIR(info.st_mode))
    return "it is a folder";
  return access(name.c_str(), R_OK) == 0 ? "" : std::strerror(errno);
}

void ExplainWhatToTryNext(const std::string& path) {
  const std::string name = KVUtils::Transcode("UTF-8", "", path);
  const bool has_folder = path.find('/') != std::string::npos;
  const std::string fault = FaultOfPath(name);
  const bool exists = access(name.c_str(), F_OK) == 0;
  if (has_folder && !fault.empty())
    PrintError("check the path given with --module: " + fault);
  else if (!has_folder && exists)
    PrintError("a name without a folder is looked for among the system's libraries only: write " +
               Quoted("./" + path) + " for the file in this folder");
  else
    PrintError(
        std::string("check that --module names the PKCS#11 library of the card") +
        (has_folder ? "" : " (without a folder it is looked for among the system's libraries)") +
        ", and that what this library needs is there: its configuration file, its daemon, the card"
        " reader's service");
  PrintHint("libraries of this kind are often in /usr/lib/*/pkcs11/ or named *pkcs11*.so");
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Slots without a usable token are no surprise; every other failure has taken something away from
// the list.
bool IsExpected(const std::string& problem) {
  return StartsWith(problem, "No certificate associated with token") ||
         problem == "Unable to open card session";
}

std::string Explanation(const std::string& problem) {
  if (StartsWith(problem, "Unable to read public key from certificate"))
    return "left out: only certificates with an RSA key can be used";
  return "";
}

}  // namespace

ExitStatus OpenProvider(const ProviderOptions& options, ComponentLog* log, PKCS11Module* module) {
  if (options.module.empty()) {  // dlopen would take it for the program itself.
    PrintError("--module is empty");
    return kExitUsage;
  }
  if (!ApplyNamesAndFilters(options, log, module) ||
      !log->Configure(options.log_level, options.log_file))
    return kExitUsage;
  // Loaded once, and closed when the program ends: providers that do not survive being loaded a
  // second time are none of its worries.
  if (module->Open(options.module) != 0) {
    ExplainWhatToTryNext(options.module);
    return kExitProvider;
  }
  log->TakeProblems();  // The provider's identity is logged at the same level.
  return kExitSuccess;
}

std::vector<std::string> Notes(const std::vector<Problem>& problems) {
  std::map<std::string, int> counts;
  for (const Problem& problem : problems)
    ++counts[problem.message];
  std::vector<std::string> notes;
  for (const auto& [message, shown] : problems) {
    const int count = std::exchange(counts[message], 0);
    if (count == 0 || IsExpected(message))
      continue;
    const std::string explanation = Explanation(message);
    const std::string times = count > 1 ? " (" + std::to_string(count) + " times)" : "";
    if (!shown)
      notes.push_back(message + (explanation.empty() ? "" : " (" + explanation + ")") + times);
    else if (!explanation.empty())
      notes.push_back(explanation + times);
  }
  return notes;
}

void ShowNotes(const std::vector<std::string>& notes) {
  for (const std::string& note : notes)
    PrintWarning("note: " + note);
}

std::optional<std::list<pkcs11_certificate>> ListCertificates(ComponentLog* log,
                                                              PKCS11Module* module) {
  // Twice, since a token that comes in between makes the first list fail. HasChanged() was true
  // when the provider had been opened, and stays so until the slots have been gone through.
  for (int attempt = 0; attempt < 2; ++attempt) {
    log->TakeProblems();
    std::list<pkcs11_certificate> records = module->GetCertificates();
    if (!module->changed)
      return records;
  }
  ShowNotes(Notes(log->TakeProblems()));
  PrintSlotListError();
  return std::nullopt;
}

void PrintSlotListError() {
  PrintError(
      "the provider could not list its slots: is what it needs running, its daemon or the card"
      " reader's service?");
}

}  // namespace cardcert::cli
