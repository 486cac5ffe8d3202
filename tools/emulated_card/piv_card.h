// A PIV card (NIST SP 800-73-4), as far as drivers ask before they list certificates and sign.
//
// clang-format off
//   CLA INS P1 P2  command                   data                         answer
//   00  A4  04 00  SELECT                    A0 00 00 03 08 00 00 10 00   61 {4F PIX, 79 {4F RID}};
//                                            (or without the version)     6A82: another application
//   00  CB  3F FF  GET DATA                  5C 01 7E   discovery object  7E {4F AID, 5F2F policy}
//                                            5C 03 5FC102   CHUID         53 {30, 34, 35, 3E, FE}
//                                            5C 03 5FC105 certificate 9A  53 {70 DER, 71 00, FE};
//                                            5C 03 5FC10A certificate 9C  6A82: no such object
//                                            5C 03 5FC10B certificate 9D
//                                            5C 03 5FC101 certificate 9E
//   00  20  00 80  VERIFY the PIN            8 bytes, padded by FF;       9000; 63Cn: n tries are left;
//                                            none: a question             6983: blocked; 6A80: form
//   00  20  FF 80  forget the verification   none                         9000
//   00  20  00 81  VERIFY the PUK (1)        as for the PIN
//   00  24  00 80  CHANGE REFERENCE DATA     old PIN, new PIN             as VERIFY
//   00  24  00 81  the same                  old PUK, new PUK
//   00  2C  00 80  RESET RETRY COUNTER       PUK, new PIN                 as VERIFY, of the PUK
//   00  2C  02 80  the same (1)              new PIN, after VERIFY 81     6982: the PUK is not verified
//   00  87  07 kk  GENERAL AUTHENTICATE      7C {82 empty, 81 block}      7C {82 signature};
//                  (RSA-2048, key kk)                                     6982: the PIN is not verified
// clang-format on
//
// Chaining (CLA 10) and GET RESPONSE are the business of ApduLayer.
//
// When a key may be used (SP 800-73-4-1, table 4b): 9A and 9D when the PIN was verified since the
// card got its power; 9C when the command before was the successful VERIFY; 9E always.
//
// (1) ISO/IEC 7816-4 has these, PIV has not. They are how OpenSC lets a security officer who is
//     logged in set a new PIN, which OpenSC sends without padding.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "emulated_card/apdu.h"
#include "emulated_card/pin_state.h"
#include "emulated_card/rsa_key.h"

class PivCard {
 public:
  // `keys` by key reference. The state is written to `state_path` before a command that changes it
  // is answered.
  PivCard(std::map<std::uint8_t, RsaKey> keys, PinState state, std::string state_path);

  Response Execute(const Command& command);

  // Power off: nothing is verified any more.
  void Reset();

 private:
  Response Select(const Command& command) const;
  Response GetData(const Command& command) const;
  Response Verify(const Command& command);
  Response ChangeReferenceData(const Command& command);
  Response ResetRetryCounter(const Command& command);
  Response GeneralAuthenticate(const Command& command, bool right_after_verify) const;

  // Compares and counts; writes the state. kOk, or the status word that says why not.
  std::uint16_t Compare(Pin* pin, const std::string& offered);
  std::uint16_t SetPin(Pin* pin, const std::string& value);
  std::uint16_t Write();

  std::map<std::uint8_t, RsaKey> keys_;
  PinState state_;
  std::string state_path_;
  bool pin_verified_ = false;
  bool puk_verified_ = false;
  bool just_verified_ = false;  // the last command was a successful VERIFY of the PIN
};
