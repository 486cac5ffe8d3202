#include "cli/commands/names_and_filters.h"

#include <charconv>
#include <optional>
#include <string>

#include "cli/terminal/console.h"
#include "host/kvutils.h"

namespace cardcert::cli {
namespace {

void PrintRefusal(const std::string& option, const std::string& value, const ComponentLog& log) {
  std::string message = "invalid " + option + " " + Quoted(value);
  for (const Problem& problem : log.problems())
    message += ": " + problem.event.message;
  PrintError(message);
  PrintHint("cardcert list --help describes the form of " + option);
}

// Returns the number that `text` is, or nothing if it is anything else or out of range.
std::optional<int> WholeNumber(const std::string& text) {
  int number = 0;
  const std::size_t sign = text.size() > 1 && text[0] == '+' && text[1] != '-' ? 1 : 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + sign, end, number);
  if (error != std::errc() || stop != end)
    return std::nullopt;
  return number;
}

// The component accepts any text as an attribute's name. No attribute has a name with a space,
// which easily gets in after a comma.
void WarnAboutSpaces(const std::string& filter, const pkcs11_certificate_filter& parsed) {
  for (const auto& [name, value] : parsed.issuer_attributes) {
    if (name.find(' ') == std::string::npos)
      continue;
    PrintWarning("--filter " + Quoted(filter) + " matches no certificate: no attribute is called " +
                 Quoted(name));
    PrintHint("write the attributes of the issuer without a space after the comma");
  }
}

// The component accepts any text as a key usage and parses it like atoi().
void WarnAboutKeyUsage(const std::string& filter, int key_usage) {
  std::list<std::string> fields;
  if (!KVUtils::DecodeStringList(filter, &fields, '|') || fields.size() != 3 ||
      WholeNumber(fields.back()))
    return;
  PrintWarning("--filter " + Quoted(filter) + ": the key usage " + Quoted(fields.back()) +
               " is not a number in range; it counts as " + std::to_string(key_usage) +
               (key_usage == 0 ? ", which requires nothing" : ""));
}

}  // namespace

bool ApplyNamesAndFilters(const ProviderOptions& options, ComponentLog* log, PKCS11Module* module) {
  log->Clear();
  if (options.name && !module->SetNameComponents(options.name->c_str())) {
    PrintRefusal("--name", *options.name, *log);
    return false;
  }
  for (const std::string& filter : options.filters) {
    if (!module->AddFilter(filter)) {
      PrintRefusal("--filter", filter, *log);
      return false;
    }
  }
  auto parsed = module->filters.begin();
  for (const std::string& filter : options.filters) {
    WarnAboutSpaces(filter, *parsed);
    WarnAboutKeyUsage(filter, parsed->key_usage);
    ++parsed;
  }
  return true;
}

}  // namespace cardcert::cli
