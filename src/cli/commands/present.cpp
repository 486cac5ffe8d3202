// cardcert present
#include "cli/commands/commands.h"
#include "cli/commands/file_roles.h"
#include "cli/commands/listing_warnings.h"
#include "cli/commands/provider.h"
#include "cli/commands/select.h"
#include "cli/output/table.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {

ExitStatus RunPresent(const ProviderOptions& provider_options, const PresentOptions& options) {
  const std::optional<Serial> serial = ParseSerial(options.serial);
  if (!serial)
    return kExitUsage;
  if (!CheckFiles(provider_options))
    return kExitUsage;
  Provider provider;
  Selection selection;
  const ExitStatus status = OpenAndSelect(provider_options, *serial, &provider, &selection);
  if (status != kExitSuccess)
    return status;

  PKCS11Module& module = provider.module();
  const bool present =
      selection.record != nullptr && module.CertificatePresent(selection.record->serial);
  if (present && !ProviderGuard::fault())
    return PrintData(CertificateLine(*selection.record) + "\n") ? kExitSuccess : kExitFailed;
  PrintWarnings(ListingWarnings(provider.log().problems()));
  const bool unusable = !present && IsOnSomeToken(&module, *serial);
  if (ProviderGuard::fault())  // Reported; neither answer can be relied on.
    return kExitFailed;
  if (unusable)
    return PrintData("a certificate that cannot be used for signing\n") ? kExitSuccess
                                                                        : kExitFailed;
  if (selection.record != nullptr)
    PrintTokenNotWritable(*selection.record);
  else
    PrintError("no token has a certificate with the serial " + Quoted(options.serial));
  return kExitNoCertificate;
}

}  // namespace cardcert::cli
