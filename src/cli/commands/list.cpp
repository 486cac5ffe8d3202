// cardcert list
#include <utility>

#include "cli/commands/commands.h"
#include "cli/commands/file_roles.h"
#include "cli/commands/listing_warnings.h"
#include "cli/commands/provider.h"
#include "cli/output/json.h"
#include "cli/output/table.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

void ExplainEmptyList(bool has_certificates, bool has_warnings, const ProviderOptions& options) {
  if (has_certificates) {
    PrintProgress("no certificate matches the filters");
    PrintHint("without --matching all certificates are listed");
  } else if (has_warnings) {
    PrintProgress("no certificate that can be used was found");
  } else {
    PrintProgress("no certificates found");
    PrintHint("check that the card is in its reader and that the card reader service is running");
    const bool shows_each_step = options.log_level == kTrace || options.log_file;
    if (!shows_each_step)
      PrintHint("--log-level 5 shows each step");
  }
}

}  // namespace

ExitStatus RunList(const ProviderOptions& provider_options, const ListOptions& options) {
  if (!CheckFiles(provider_options))
    return kExitUsage;
  Provider provider;
  const ExitStatus status = provider.Open(provider_options);
  if (status != kExitSuccess)
    return status;
  std::optional<Listing> listing = provider.List();
  if (!listing)
    return kExitFailed;

  const std::vector<std::string> warnings = ListingWarnings(provider.log().problems());
  PrintWarnings(warnings);
  std::list<pkcs11_certificate> records = std::move(listing->records);
  const bool has_certificates = !records.empty();
  if (options.matching)
    records.remove_if([](const pkcs11_certificate& record) { return !record.matches_filter; });

  bool printed = true;
  if (options.json)
    printed = PrintData(CertificatesAsJson(records, provider.module().GetLibraryPath()));
  else if (!records.empty())
    printed = PrintData(CertificateTable(records));
  if (records.empty())
    ExplainEmptyList(has_certificates, !warnings.empty(), provider_options);
  return printed ? kExitSuccess : kExitFailed;
}

}  // namespace cardcert::cli
