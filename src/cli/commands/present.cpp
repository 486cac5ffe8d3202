// cardcert present
#include "cli/commands/commands.h"
#include "cli/commands/provider.h"
#include "cli/commands/select.h"
#include "cli/output/table.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {

ExitStatus RunPresent(const ProviderOptions& provider, const PresentOptions& options) {
  const std::optional<Serial> serial = Serial::Parse(options.serial);
  if (!serial) {
    PrintInvalidSerial(options.serial);
    return kExitUsage;
  }
  ComponentLog log;
  PKCS11Module module;
  const ExitStatus opened = OpenProvider(provider, &log, &module);
  if (opened != kExitSuccess)
    return opened;

  const std::optional<std::list<pkcs11_certificate>> records = ListCertificates(&log, &module);
  if (!records)
    return kExitFailed;
  const Selection selection = SelectCertificate(*records, *serial);
  if (selection.status == kExitAmbiguous)
    return kExitAmbiguous;
  if (selection.record != nullptr && module.CertificatePresent(selection.record->serial))
    return PrintData(CertificateLine(*selection.record) + "\n") ? kExitSuccess : kExitFailed;
  ShowNotes(Notes(log.TakeProblems()));
  if (IsOnSomeToken(&module, *serial))
    return PrintData("a certificate that cannot be used for signing\n") ? kExitSuccess
                                                                        : kExitFailed;
  if (selection.record == nullptr) {
    PrintError("no token has a certificate with the serial " + Quoted(options.serial));
  } else {
    PrintTokenNotWritable(*selection.record);
  }
  return kExitNoCertificate;
}

}  // namespace cardcert::cli
