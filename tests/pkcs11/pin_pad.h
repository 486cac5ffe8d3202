// The user, as the PIN callbacks see one: a script of what is typed, which records every request in
// the trace.
//
//   PinPad pad;
//   pad.Type(PIN_TYPE_USER, "1234").Cancel(PIN_TYPE_USER);
//   module.Sign("01", data, data_len, signature, &signature_len, pad.ask(), pad.tell(), &pad);
//
// leaves "ask USER = PIN of 4 bytes", "tell USER INCORRECT" and "ask USER = cancel" in the trace.
// The test fails when a request does not match the next line of the script (the request is then
// cancelled), when a line is left at the end, and when a callback gets another pointer than &pad.
// Only one pad may exist at a time.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "pkcs11/pkcs11.h"

class PinPad {
 public:
  // Thrown by the callback after Throw().
  struct Thrown : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  PinPad();
  ~PinPad();
  PinPad(const PinPad&) = delete;
  PinPad& operator=(const PinPad&) = delete;

  // The answer to the next request.
  PinPad& Type(pkcs11_pin_type type, const std::string& pin);
  PinPad& Agree();  // Answers PIN_TYPE_UNLOCK.
  PinPad& Cancel(pkcs11_pin_type type);
  PinPad& Throw(pkcs11_pin_type type);
  // Writes as many bytes as fit, but reports `length` as the length of the PIN.
  PinPad& Claim(pkcs11_pin_type type, unsigned long length);
  // Runs `action` within the last scripted request, before the answer.
  PinPad& Meanwhile(std::function<void()> action);

  static pin_cb ask() { return &PinPad::Ask; }
  static error_cb tell() { return &PinPad::Tell; }

 private:
  struct Answer {
    pkcs11_pin_type type;
    std::string text;                       // In the trace.
    std::optional<std::string> hidden_pin;  // Complemented, so that a memory scan cannot find it.
    std::optional<unsigned long> claim;
    bool agrees;
    bool throws;
    std::function<void()> meanwhile;
  };

  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data);
  static void Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data);
  PinPad& Add(pkcs11_pin_type type, const std::string& text);
  bool Apply(const Answer& answer, unsigned char* buffer, unsigned long* length);

  std::deque<Answer> script_;
};

// A PIN callback for tests of many calls: always types "1234", and leaves no trace.
inline bool TypeUserPin(pkcs11_pin_type, unsigned char* buffer, unsigned long* length, void*) {
  *length = std::string("1234").copy(reinterpret_cast<char*>(buffer), *length);
  return true;
}
