// A PIV card (NIST SP 800-73-4): the commands that drivers use to list certificates and to sign.
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
//                                            none: only the counter       6983: blocked; 6A80: format
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
// ApduLayer handles chaining (CLA 10) and GET RESPONSE.
//
// Access rules (SP 800-73-4-1, table 4b): 9A and 9D require that the PIN has been verified since
// the card was powered; 9C requires that the previous command was a successful VERIFY; 9E requires
// nothing.
//
// (1) Not in PIV but in ISO/IEC 7816-4. OpenSC uses these commands when a security officer who is
//     logged in sets a new PIN, and sends the new PIN without padding.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "emulated_card/apdu.h"
#include "emulated_card/card_key.h"
#include "emulated_card/pin_state.h"

class PivCard {
 public:
  // `keys` is indexed by key reference. A command that changes the state writes it to `state_path`
  // before it is answered.
  PivCard(std::map<std::uint8_t, CardKey> keys, PinState state, std::string state_path);

  Response Execute(const Command& command);

  // The card has lost its power: neither PIN nor PUK counts as verified any more.
  void Reset();

 private:
  Response Select(const Command& command) const;
  Response GetData(const Command& command) const;
  Response Verify(const Command& command);
  Response ChangeReferenceData(const Command& command);
  Response ResetRetryCounter(const Command& command);
  Response GeneralAuthenticate(const Command& command, bool right_after_verify) const;

  // Compares `offered` with the PIN, updates the retry counter and writes the state. Returns kOk or
  // the status word of the failure.
  std::uint16_t Compare(Pin* pin, const std::string& offered);
  std::uint16_t SetPin(Pin* pin, const std::string& value);
  std::uint16_t Write();

  std::map<std::uint8_t, CardKey> keys_;
  PinState state_;
  std::string state_path_;
  bool pin_verified_ = false;
  bool puk_verified_ = false;
  bool just_verified_ = false;  // The last command was a successful VERIFY of the PIN.
};
