// From a serial number on the command line to one certificate.
#pragma once

#include <list>
#include <string>

#include "cli/certificates/serials.h"
#include "cli/exit_status.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

struct Selection {
  const pkcs11_certificate* record = nullptr;  // null: `status` says why
  ExitStatus status = kExitSuccess;
  bool has_copies = false;  // further on, on this token or another
};

// The one certificate of `records` with this serial. None: kExitNoCertificate, without a word, for
// the caller knows more. Several different ones: kExitAmbiguous, and they have been listed on
// standard error, for the component would quietly take the first.
Selection SelectCertificate(const std::list<pkcs11_certificate>& records, const Serial& serial);

// Whether the component would sign with this one of its certificates: kExitSuccess, or a status
// that has been complained about. It takes the first with the serial, and that may be one that it
// cannot describe (one without an RSA key) and that is therefore in no list: kExitAmbiguous. And it
// takes only what is on a token that can be opened for reading and writing: kExitFailed.
ExitStatus CheckThatItSigns(PKCS11Module* module, const pkcs11_certificate& record);

// Complains that a listed certificate is on a token that cannot be opened for reading and writing.
void PrintTokenNotWritable(const pkcs11_certificate& record);

// Complains that `text` is no serial number.
void PrintInvalidSerial(const std::string& text);

// Whether the component finds the serial on a token, be it in a certificate that it cannot
// describe (one without an RSA key).
bool IsOnSomeToken(PKCS11Module* module, const Serial& serial);

}  // namespace cardcert::cli
