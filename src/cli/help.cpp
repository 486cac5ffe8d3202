#include "cli/help.h"

namespace cardcert::cli {

std::string VersionText() {
  return "cardcert " CARDCERT_VERSION;
}

std::string HelpText() {
  return R"(cardcert - certificates and keys on smart cards and other PKCS#11 tokens

Usage:
  cardcert list --module PATH [--matching] [--json]
  cardcert present SERIAL --module PATH
  cardcert watch --module PATH [--interval SECONDS] [--count N] [--json]
  cardcert sign SERIAL --module PATH [--in FILE] [--out FILE] [--digest NAME]
                [--encoding NAME] [--pin-file FILE | --pin env:NAME] [--batch]
  cardcert --help
  cardcert --version

Commands:
  list      Lists the certificates on all tokens: name, serial, length of the
            key (rounded down to a multiple of 16 bits), what the key may be
            used for, whether it is a CA's certificate, whether it passes the
            filters, and the slot. Only certificates with an RSA key are listed.
  present   Says whether the certificate is on a token now.
  watch     Lists the certificates, then each that is added (+) or removed (-)
            as it is noticed, until Ctrl-C. Where the provider reports no events
            it lists again every 3 seconds, or less often if it is to look less
            often.
  sign      Signs a file with the private key that belongs to the certificate
            (RSA, PKCS #1 v1.5), and checks the signature with the certificate
            before anything is written. PINs are asked for on the terminal. A
            locked PIN can be unlocked on the way, with the security officer's
            PIN (SO PIN, often called PUK).

  SERIAL is a serial number as list shows it: hexadecimal, upper or lower case,
  with or without 0x, colons and leading zeros.

Options of all commands:
  -m, --module PATH   The PKCS#11 provider: the shared library that comes with
                      the card, for example
                      /usr/lib/x86_64-linux-gnu/opensc-pkcs11.so. Always needed.
  --name SPEC         How certificates are named: parts separated by commas,
                      each card_label, pin_label, subject_ATTRIBUTE or
                      issuer_ATTRIBUTE, where ATTRIBUTE is a word such as
                      commonName, organizationName, serialNumber, emailAddress,
                      a short name such as CN, or an object identifier.
                      Default: subject_commonName.
  --log-level N       Writes the log to standard error: 2 shows why a provider
                      cannot be used, 3 also what failed and what was loaded,
                      5 everything; 0 nothing.
  --log-file FILE     Appends the log to FILE instead; all of it, unless
                      --log-level says less.
  -h, --help          Shows this text.
  --version           (without a command) Shows the version.

Options of list and watch:
  --filter SPEC       Which certificates match: "NAME|ISSUER|USAGE". May be
                      repeated: one of the filters is enough.
                      NAME is any text.
                      ISSUER is a list such as
                      commonName=Example CA,organizationName=Example, all of
                      which the certificate's issuer must have; it may be empty.
                      USAGE is the sum of the key usages that the certificate
                      must have: digitalSignature 128, nonRepudiation 64,
                      keyEncipherment 32, dataEncipherment 16, keyAgreement 8,
                      keyCertSign 4, cRLSign 2, encipherOnly 1, decipherOnly
                      32768; 0 for none. A certificate that does not restrict
                      its key usage has them all.
                      A backslash before a separator makes it an ordinary
                      character.
  --matching          (list) Only certificates that match.
  --json              JSON instead of text. list writes an array of one object a
                      certificate, with name (a list of the parts), subject,
                      serial, ca, key_usage (the sum as above, -1 when not
                      restricted), key_usage_names, matches_filter, key_bits,
                      public_exponent and modulus (hexadecimal), slot, module.
                      watch writes one line at a time, with event (present,
                      added or removed) and certificate (such an object).
  --interval SECONDS  (watch) How long to wait between two looks; default 1.
  --count N           (watch) Looks N times, the first list included, and ends.

Options of sign:
  --in FILE           What to sign; - is standard input, the default.
  --out FILE          Where the signature goes: written whole or not at all;
                      - is standard output, the default.
  --digest NAME       sha256 (the default), sha384, sha512, sha224, sha1, or
                      none: the file is signed as it is, and must be at least 11
                      bytes shorter than the key.
  --encoding NAME     raw (the default), base64 or hex.
  --pin-file FILE     Takes the PIN from a file of one line.
  --pin env:NAME      Takes the PIN from an environment variable.
  --so-pin-file FILE, --so-pin env:NAME, --new-pin-file FILE, --new-pin env:NAME
                      In the same way the security officer's PIN and a new PIN.
                      With both, a PIN that is locked is unlocked without a
                      question.
  --batch             Never asks. Any of the options for PINs means --batch,
                      too. Each PIN is then offered once, and held back when the
                      token says that it is the last try: no script locks a card
                      that tells of its tries. Many do not tell of those of the
                      SO PIN: each run with a wrong one takes a try.

Exit status:
  0  done; for list also when there are no certificates
  1  failed
  2  the command line is wrong, or a file that it names cannot be used;
     nothing was touched
  3  the provider cannot be loaded
  4  no token has a certificate with the serial; for present also when the token
     cannot be opened for reading and writing
  5  several different certificates have the serial
  6  cancelled, or a PIN was needed and could not be asked for
  7  a PIN was wrong, or refused for its length or form
  8  a PIN is locked
  9  a PIN was held back, because it would have been the last try

Examples:
  cardcert list -m /usr/lib/softhsm/libsofthsm2.so
  cardcert list -m opensc-pkcs11.so --name card_label,subject_commonName
  cardcert list -m opensc-pkcs11.so --matching --json \
      --filter 'Signing|organizationName=Example|128'
  cardcert present 4f:a1:07 -m opensc-pkcs11.so && echo "the card is there"
  cardcert sign 4fa107 -m opensc-pkcs11.so --in letter.pdf --out letter.sig
  cardcert sign 4fa107 -m opensc-pkcs11.so --in letter.pdf --out letter.sig \
      --digest sha512 --encoding base64 --pin-file pin.txt
)";
}

}  // namespace cardcert::cli
