// What the program's exit status says. Scripts rely on the numbers; --help lists them.
#pragma once

namespace cardcert::cli {

enum ExitStatus : int {
  kExitSuccess = 0,
  kExitFailed = 1,           // the operation failed
  kExitUsage = 2,            // the command line, or a file that it names; nothing was touched
  kExitProvider = 3,         // the provider cannot be loaded
  kExitNoCertificate = 4,    // no certificate has the serial, or present cannot open its token
  kExitAmbiguous = 5,        // several different certificates have the serial
  kExitCancelled = 6,        // the user cancelled, or a PIN was needed and could not be asked for
  kExitPinWrong = 7,         // a PIN was wrong, or refused for its length or form
  kExitPinLocked = 8,        // a PIN is locked
  kExitFinalTryRefused = 9,  // a PIN was held back, since one more wrong one would lock it
};

}  // namespace cardcert::cli
