#include "cli/commands/listing_warnings.h"

#include <map>
#include <utility>

#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

bool IsNormal(ComponentEventKind kind) {
  return kind == ComponentEventKind::kNoCertificates ||
         kind == ComponentEventKind::kSessionNotOpened;
}

std::string Explanation(ComponentEventKind kind) {
  return kind == ComponentEventKind::kPublicKeyUnreadable
             ? "left out: only certificates with an RSA key can be used"
             : "";
}

}  // namespace

std::vector<std::string> ListingWarnings(const std::vector<Problem>& problems) {
  std::map<std::string, int> counts;
  for (const Problem& problem : problems)
    ++counts[problem.event.message];

  std::vector<std::string> warnings;
  for (const auto& [event, shown] : problems) {
    const int count = std::exchange(counts[event.message], 0);
    if (count == 0 || IsNormal(event.kind))
      continue;
    const std::string explanation = Explanation(event.kind);
    std::string warning = shown ? explanation : event.message;
    if (!shown && !explanation.empty())
      warning += " (" + explanation + ")";
    if (!warning.empty())
      warnings.push_back(warning + (count > 1 ? " (" + std::to_string(count) + " times)" : ""));
  }
  return warnings;
}

void PrintWarnings(const std::vector<std::string>& warnings) {
  for (const std::string& warning : warnings)
    PrintWarning(warning);
}

}  // namespace cardcert::cli
