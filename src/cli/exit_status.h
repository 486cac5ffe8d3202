// The program's exit status. Scripts rely on the numbers, and cardcert --help lists them.
#pragma once

namespace cardcert::cli {

enum ExitStatus : int {
  kExitSuccess = 0,
  kExitFailed = 1,
  kExitUsage = 2,            // the command line, or a file that it names; nothing was touched
  kExitProvider = 3,         // the provider cannot be loaded
  kExitNoCertificate = 4,    // no certificate has the serial, or present cannot open its token
  kExitAmbiguous = 5,        // several different certificates have the serial
  kExitCancelled = 6,        // the user cancelled, or there was no way to ask for a PIN
  kExitPinWrong = 7,         // a PIN was wrong, or refused for its length or form
  kExitPinLocked = 8,        // a PIN is locked
  kExitFinalTryRefused = 9,  // a PIN was not tried, because a wrong one would have locked it
};

}  // namespace cardcert::cli
