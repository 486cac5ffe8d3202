// cardcert sign
#include <unistd.h>

#include <memory>
#include <vector>

#include "cli/certificates/describe.h"
#include "cli/commands/commands.h"
#include "cli/commands/provider.h"
#include "cli/commands/select.h"
#include "cli/commands/sign_failure.h"
#include "cli/output/encoding.h"
#include "cli/output/output_file.h"
#include "cli/pins/scripted_pins.h"
#include "cli/pins/terminal_pins.h"
#include "cli/signature/digest_info.h"
#include "cli/signature/rsa_check.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

using Bytes = std::vector<unsigned char>;

// False, with a complaint, when one of the PINs that are given cannot be had.
bool ReadGivenPins(const SignOptions& options, GivenPins* pins) {
  struct Given {
    const PinSource& source;
    const char* option;
    std::unique_ptr<Secret>* pin;
  };
  const Given all[] = {{options.pin, "--pin", &pins->user},
                       {options.so_pin, "--so-pin", &pins->security_officer},
                       {options.new_pin, "--new-pin", &pins->new_user}};
  bool good = true;
  for (const Given& given : all) {
    if (options.in == "-" && ReadsStandardInput(given.source)) {
      PrintError(std::string(given.option) +
                 "-file is standard input, which is to be signed: use --in FILE");
      good = false;
    }
    if (good && given.source.given())
      good = (*given.pin = ReadPin(given.source, given.option)) != nullptr;
  }
  for (const Given& given : all)
    ForgetPinVariable(given.source);
  return good;
}

// False, with a complaint, when the signature would take the place of a file that is read, or of
// the log.
bool IsNoInput(const OutputFile& output, const ProviderOptions& provider,
               const SignOptions& options) {
  struct Used {
    const char* option;
    std::optional<std::string> path;
  };
  for (const Used& used :
       {Used{"--in", options.in}, Used{"--pin-file", options.pin.file},
        Used{"--so-pin-file", options.so_pin.file}, Used{"--new-pin-file", options.new_pin.file},
        Used{"--log-file", provider.log_file}}) {
    if (used.path && output.Replaces(*used.path)) {
      PrintError(std::string("--out is the file of ") + used.option + ", which would be lost");
      return false;
    }
  }
  return true;
}

std::unique_ptr<PinAnswers> MakeAnswers(const SignOptions& options, GivenPins pins,
                                        const pkcs11_certificate& record, ComponentLog* log) {
  if (options.batch || options.pin.given() || options.so_pin.given() || options.new_pin.given())
    return std::make_unique<ScriptedPins>(std::move(pins), log);
  return std::make_unique<TerminalPins>(
      Quoted(NameText(record)) + " in " + Quoted(record.slot_description), log);
}

ExitStatus ExplainMissing(const SignOptions& options, const Serial& serial, PKCS11Module* module,
                          ComponentLog* log) {
  ShowNotes(Notes(log->TakeProblems()));
  if (IsOnSomeToken(module, serial)) {
    PrintError(
        "the certificate is there, but it cannot be used: it has no RSA key, or cannot be"
        " read whole");
    return kExitFailed;
  }
  PrintError("no token has a certificate with the serial " + Quoted(options.serial) +
             "; cardcert list shows those there are");
  return kExitNoCertificate;
}

// The signature; without one, the status that says why, about which the user has been told.
struct Result {
  ExitStatus status = kExitSuccess;
  Bytes signature;
};

Result Sign(PKCS11Module* module, const pkcs11_certificate& record, const Bytes& data,
            PinAnswers* answers, ComponentLog* log) {
  // Many providers take a null pointer for a mistake, also where nothing is to be signed.
  static constexpr unsigned char kNothing = 0;
  Bytes signature(sizeof record.modulus);
  unsigned long length = signature.size();
  log->TakeProblems();
  const bool made = module->Sign(record.serial, data.empty() ? &kNothing : data.data(), data.size(),
                                 signature.data(), &length, &PinAnswers::AskCallback,
                                 &PinAnswers::TellCallback, answers);
  if (!made)
    return {ExplainFailure(*answers, log->TakeProblems()), {}};
  signature.resize(length);
  if (!IsSignatureOn(data, signature, record)) {
    PrintError(
        "the token's signature does not fit the certificate's public key; nothing is written");
    return {kExitFailed, {}};
  }
  return {kExitSuccess, std::move(signature)};
}

}  // namespace

ExitStatus RunSign(const ProviderOptions& provider, const SignOptions& options) {
  GivenPins pins;
  if (!ReadGivenPins(options, &pins))
    return kExitUsage;
  const std::optional<Serial> serial = Serial::Parse(options.serial);
  if (!serial) {
    PrintInvalidSerial(options.serial);
    return kExitUsage;
  }
  std::optional<OutputFile> output = OutputFile::Prepare(options.out);
  if (!output || !IsNoInput(*output, provider, options))
    return kExitUsage;
  if (options.encoding == "raw" && output->IsTerminal()) {
    PrintError("a raw signature is not for a terminal: use --out FILE or --encoding base64");
    return kExitUsage;
  }
  if (options.in == "-" && isatty(STDIN_FILENO))
    PrintError("what is to be signed is read from the terminal, up to Ctrl-D; --in takes a file");
  const std::optional<Bytes> data = ReadDataToSign(options.in, options.digest);
  if (!data)
    return kExitUsage;

  ComponentLog log;
  PKCS11Module module;
  const ExitStatus opened = OpenProvider(provider, &log, &module);
  if (opened != kExitSuccess)
    return opened;

  const std::optional<std::list<pkcs11_certificate>> records = ListCertificates(&log, &module);
  if (!records)
    return kExitFailed;
  const Selection selection = SelectCertificate(*records, *serial);
  if (selection.status == kExitNoCertificate)
    return ExplainMissing(options, *serial, &module, &log);
  if (selection.record == nullptr)
    return selection.status;
  const ExitStatus usable = CheckThatItSigns(&module, *selection.record);
  if (usable != kExitSuccess)
    return usable;
  if (selection.has_copies)
    PrintError(
        "note: the certificate is there more than once; the key and the PIN are those of the"
        " one in " +
        Quoted(selection.record->slot_description));
  if (data->size() > MaxDataLength(*selection.record)) {
    PrintError("with --digest " + options.digest + " " + std::to_string(data->size()) +
               " bytes are to be signed; a key of " + std::to_string(KeyBits(*selection.record)) +
               " bits takes at most " + std::to_string(MaxDataLength(*selection.record)) +
               " bytes");
    return kExitFailed;
  }

  const std::unique_ptr<PinAnswers> answers =
      MakeAnswers(options, std::move(pins), *selection.record, &log);
  const Result result = Sign(&module, *selection.record, *data, answers.get(), &log);
  if (result.status != kExitSuccess)
    return result.status;
  return output->Write(Encode(result.signature, options.encoding)) ? kExitSuccess : kExitFailed;
}

}  // namespace cardcert::cli
