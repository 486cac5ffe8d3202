#include "cli/command_line/declarations.h"

#include <CLI/CLI.hpp>

#include <string>

#include "cli/command_line/add_option.h"
#include "cli/output/encoding.h"
#include "cli/signature/digest_info.h"

namespace cardcert::cli {
namespace {

constexpr char kCommonGroup[] = "Options of all commands";

void AddSerial(CLI::App* app, std::string* serial) {
  AddValue(app, "SERIAL", "", serial,
           "The serial number of the certificate as list shows it: hexadecimal digits, upper or"
           " lower case, with or without 0x, colons and leading zeros.")
      ->required();
}

void AddFilter(CLI::App* app, ProviderOptions* provider) {
  AddValue(app, "--filter", "SPEC", &provider->filters,
           "Which certificates match, as \"NAME|ISSUER|USAGE\". NAME is any text. ISSUER lists"
           " attributes that the issuer must have, such as commonName=Example CA,O=Example; it may"
           " be empty. USAGE is the sum of the key usages that the certificate must allow:"
           " digitalSignature 128, nonRepudiation 64, keyEncipherment 32, dataEncipherment 16,"
           " keyAgreement 8, keyCertSign 4, cRLSign 2, encipherOnly 1, decipherOnly 32768; 0 for"
           " none. A certificate without key usage allows all. A backslash before a separator"
           " makes it an ordinary character. With several --filter options a certificate has to"
           " match one of them.")
      ->allow_extra_args(false);
}

void AddCommonOptions(CLI::App* app, ProviderOptions* provider) {
  AddValue(app, "-m,--module", "PATH", &provider->module,
           "The PKCS#11 library that comes with the card, such as"
           " /usr/lib/x86_64-linux-gnu/opensc-pkcs11.so. Required.")
      ->required()
      ->group(kCommonGroup);
  AddValue(app, "--name", "SPEC", &provider->name,
           "How certificates are named: card_label, pin_label, subject_ATTRIBUTE and"
           " issuer_ATTRIBUTE, separated by commas. ATTRIBUTE is a name such as commonName,"
           " organizationName or emailAddress, a short name such as CN, or an object identifier."
           " Default: subject_commonName.")
      ->group(kCommonGroup);
  AddNumber(app, "--log-level", "N", &provider->log_level, 0, 5,
            "Writes a log to standard error. 0: nothing; 2: why a provider cannot be used; 3: also"
            " what failed and what was loaded; 5: each step.")
      ->group(kCommonGroup);
  AddValue(app, "--log-file", "FILE", &provider->log_file,
           "Appends the log to FILE instead, up to level 5 unless --log-level is given.")
      ->group(kCommonGroup);
  app->get_help_ptr()->group(kCommonGroup);
}

CLI::App* AddCommand(CLI::App* app, const char* name, const char* summary, const char* examples) {
  return app->add_subcommand(name, summary)->footer(examples);
}

void DeclareList(CLI::App* parent, Options* options) {
  CLI::App* const app = AddCommand(
      parent, "list",
      "Lists the certificates on all tokens: name, serial number, key length (rounded down to a"
      " multiple of 16 bits), key usage, CA or not, match with the filters, and slot. Only"
      " certificates with an RSA key are listed.",
      "  cardcert list -m /usr/lib/softhsm/libsofthsm2.so\n"
      "  cardcert list -m opensc-pkcs11.so --name card_label,subject_commonName\n"
      "  cardcert list -m opensc-pkcs11.so --matching --json \\\n"
      "      --filter 'Signing|organizationName=Example|128'\n");
  AddFilter(app, &options->provider);
  AddFlag(app, "--matching", &options->list.matching, "Lists only certificates that match.");
  AddFlag(app, "--json", &options->list.json,
          "Writes JSON: an array with one object for each certificate. Its members are name (a"
          " list), subject, serial, ca, key_usage (a sum as in --filter, -1 if not restricted),"
          " key_usage_names, matches_filter, key_bits, public_exponent and modulus (both"
          " hexadecimal), slot, module.");
  AddCommonOptions(app, &options->provider);
}

void DeclarePresent(CLI::App* parent, Options* options) {
  CLI::App* const app = AddCommand(
      parent, "present",
      "Checks if a certificate is on a token now. The exit status is 0 if it is there and 4 if"
      " it is not, or if its token cannot be opened for reading and writing.",
      "  cardcert present 4f:a1:07 -m opensc-pkcs11.so && echo 'the card is there'\n");
  AddSerial(app, &options->present.serial);
  AddCommonOptions(app, &options->provider);
}

void DeclareWatch(CLI::App* parent, Options* options) {
  CLI::App* const app = AddCommand(
      parent, "watch",
      "Lists the certificates, then shows each one that is added (+) or removed (-), until Ctrl-C."
      " If the provider reports no events, the tokens are listed again every 3 seconds, or at each"
      " look if --interval is longer.",
      "  cardcert watch -m opensc-pkcs11.so\n"
      "  cardcert watch -m opensc-pkcs11.so --json --interval 0.5\n");
  AddFilter(app, &options->provider);
  AddFlag(app, "--json", &options->watch.json,
          "Writes JSON, one line for each event: event (present, added or removed) and certificate"
          " (an object as from list --json).");
  AddNumber(app, "--interval", "SECONDS", &options->watch.interval, 0.05, 86400.0,
            "How long to wait between two looks. Default: 1.");
  AddNumber(app, "--count", "N", &options->watch.count, 1UL, 1000000000UL,
            "Ends after N looks, the first list included.");
  AddCommonOptions(app, &options->provider);
}

void AddPin(CLI::App* app, const std::string& name, const std::string& what, PinSource* source) {
  CLI::Option* const file = AddValue(app, (name + "-file").c_str(), "FILE", &source->file,
                                     ("Reads " + what + " from a file with one line.").c_str());
  AddValue(app, name.c_str(), "env:NAME", &source->variable,
           ("Reads " + what + " from an environment variable.").c_str())
      ->excludes(file);
}

void DeclareSign(CLI::App* parent, Options* options) {
  CLI::App* const app = AddCommand(
      parent, "sign",
      "Signs a file with the private key of a certificate (RSA, PKCS #1 v1.5). The signature is"
      " verified with the certificate before it is written. PINs are asked for at the terminal; a"
      " locked PIN can be unlocked with the security officer's PIN (SO PIN, often called PUK).",
      "  cardcert sign 4fa107 -m opensc-pkcs11.so --in letter.pdf --out letter.sig\n"
      "  cardcert sign 4fa107 -m opensc-pkcs11.so --in letter.pdf --out letter.sig \\\n"
      "      --digest sha512 --encoding base64 --pin-file pin.txt\n");
  SignOptions* const sign = &options->sign;
  AddSerial(app, &sign->serial);
  AddValue(app, "--in", "FILE", &sign->in, "The file to sign. Default: -, standard input.");
  AddValue(app, "--out", "FILE", &sign->out,
           "Where the signature goes; written completely or not at all. Default: -, standard"
           " output.");
  AddValue(app, "--digest", "NAME", &sign->digest,
           "sha256 (default), sha384, sha512, sha224, sha1, or none: the file itself is signed and"
           " must be at least 11 bytes shorter than the key.")
      ->check(OneOf(DigestNames()));
  AddValue(app, "--encoding", "NAME", &sign->encoding, "raw (default), base64 or hex.")
      ->check(OneOf(EncodingNames()));
  AddPin(app, "--pin", "the PIN", &sign->pin);
  AddPin(app, "--so-pin", "the SO PIN", &sign->so_pin);
  AddPin(app, "--new-pin", "a new PIN", &sign->new_pin);
  AddFlag(app, "--batch", &sign->batch,
          "Never asks; implied by the options for PINs. Each PIN is offered once, and not at all if"
          " the token reports that it is the last try. A locked PIN is unlocked if SO PIN and new"
          " PIN are given.");
  AddFlag(app, "--allow-unreported-tries", &sign->allow_unreported_tries,
          "Offers the SO PIN also to a token that does not report how many tries of it are left, as"
          " most cards do. Each run with a wrong one uses up a try.");
  AddCommonOptions(app, &options->provider);
}

void DeclareHelp(CLI::App* parent, Options* options) {
  CLI::App* const app = parent->add_subcommand("help", "Shows this help, or that of a command.");
  AddValue(app, "COMMAND", "", &options->help.command, "The command.");
}

}  // namespace

void DeclareCommands(CLI::App* app, Options* options) {
  app->description("cardcert - certificates and keys on smart cards and other PKCS#11 tokens");
  app->set_help_flag("-h,--help", "Shows this help.");
  app->set_version_flag("--version", "cardcert " CARDCERT_VERSION, "Shows the version.");
  app->require_subcommand(1);
  DeclareList(app, options);
  DeclarePresent(app, options);
  DeclareWatch(app, options);
  DeclareSign(app, options);
  DeclareHelp(app, options);
}

}  // namespace cardcert::cli
