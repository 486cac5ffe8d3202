// cardcert sign
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/certificates/describe.h"
#include "cli/commands/commands.h"
#include "cli/commands/listing_warnings.h"
#include "cli/commands/make_signature.h"
#include "cli/commands/provider.h"
#include "cli/commands/select.h"
#include "cli/commands/sign_inputs.h"
#include "cli/output/encoding.h"
#include "cli/pins/scripted_pins.h"
#include "cli/pins/terminal_pins.h"
#include "cli/signature/rsa_check.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

ExitStatus ExplainMissing(const SignOptions& options, const Serial& serial, Provider* provider) {
  PrintWarnings(ListingWarnings(provider->log().problems()));
  if (IsOnSomeToken(&provider->module(), serial)) {
    PrintError("the certificate with the serial " + Quoted(options.serial) +
               " cannot be used: it has no RSA key, or a part of it cannot be read");
    return kExitFailed;
  }
  PrintError("no token has a certificate with the serial " + Quoted(options.serial));
  PrintHint("cardcert list shows the certificates on the tokens");
  return kExitNoCertificate;
}

bool FitsKey(const std::vector<unsigned char>& data, const std::string& digest,
             const pkcs11_certificate& record) {
  const std::size_t limit = MaxDataLength(record);
  if (data.size() <= limit)
    return true;
  PrintError("--digest " + digest + " gives " + std::to_string(data.size()) +
             " bytes to sign; a key of " + std::to_string(KeyLengthBits(record)) +
             " bits can sign at most " + std::to_string(limit) + " bytes");
  return false;
}

std::unique_ptr<PinAnswers> MakeAnswers(const SignOptions& options, GivenPins pins,
                                        ComponentLog* log) {
  if (options.batch || options.pin.given() || options.so_pin.given() || options.new_pin.given())
    return std::make_unique<ScriptedPins>(std::move(pins), log);
  return std::make_unique<TerminalPins>(log);
}

}  // namespace

ExitStatus RunSign(const ProviderOptions& provider_options, const SignOptions& options) {
  std::optional<SignInputs> inputs = ReadSignInputs(provider_options, options);
  if (!inputs)
    return kExitUsage;

  Provider provider;
  Selection selection;
  ExitStatus status = OpenAndSelect(provider_options, inputs->serial, &provider, &selection);
  if (status != kExitSuccess)
    return status;
  if (selection.record == nullptr)
    return ExplainMissing(options, inputs->serial, &provider);
  status = CheckNothingHides(selection, &provider.module());
  if (status != kExitSuccess)
    return status;
  if (!FitsKey(inputs->data, options.digest, *selection.record))
    return kExitFailed;

  const std::unique_ptr<PinAnswers> answers =
      MakeAnswers(options, std::move(inputs->pins), &provider.log());
  std::vector<unsigned char> signature;
  status = MakeSignature(selection, inputs->data, &provider, answers.get(), &signature);
  if (status != kExitSuccess)
    return status;
  return inputs->output.Write(Encode(signature, options.encoding)) ? kExitSuccess : kExitFailed;
}

}  // namespace cardcert::cli
