// cardcert list
#include "cli/commands/commands.h"
#include "cli/commands/provider.h"
#include "cli/output/json.h"
#include "cli/output/table.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

void ExplainEmptyList(bool had_certificates, bool had_others, const ProviderOptions& provider) {
  if (had_certificates) {
    PrintError("no certificate matches; without --matching all are listed");
    return;
  }
  if (had_others) {
    PrintError("no certificates that can be used");
    return;
  }
  const bool shows_each_step = provider.log_level == 5 || provider.log_file;
  PrintError(
      std::string(
          "no certificates found: is the card in its reader, and the reader's service running?") +
      (shows_each_step ? "" : " --log-level 5 shows each step"));
}

}  // namespace

ExitStatus RunList(const ProviderOptions& provider, const ListOptions& options) {
  ComponentLog log;
  PKCS11Module module;
  const ExitStatus status = OpenProvider(provider, &log, &module);
  if (status != kExitSuccess)
    return status;

  std::optional<std::list<pkcs11_certificate>> listed = ListCertificates(&log, &module);
  if (!listed)
    return kExitFailed;
  const std::vector<std::string> notes = Notes(log.TakeProblems());
  ShowNotes(notes);
  std::list<pkcs11_certificate>& records = *listed;
  const bool had_certificates = !records.empty();
  if (options.matching)
    records.remove_if([](const pkcs11_certificate& record) { return !record.matches_filter; });

  bool printed = true;
  if (options.json)
    printed = PrintData(CertificatesAsJson(records, module.GetLibraryPath()));
  else if (!records.empty())
    printed = PrintData(CertificateTable(records));
  if (records.empty())
    ExplainEmptyList(had_certificates, !notes.empty(), provider);
  return printed ? kExitSuccess : kExitFailed;
}

}  // namespace cardcert::cli
