// The user, behind the PIN callbacks: a script of what is typed, and a witness in the trace.
//
//   PinPad pad;
//   pad.Type(PIN_TYPE_USER, "1234").Cancel(PIN_TYPE_USER);
//   module.Sign("01", data, data_len, signature, &signature_len, pad.ask(), pad.tell(), &pad);
//
// leaves "ask USER = PIN of 4 bytes", "tell USER INCORRECT" and "ask USER = cancel" in the trace. A
// request that is not next in the script is answered with a cancel and fails the test, and so do
// what is left of the script at the end and another pointer than &pad. There is one pad at a time.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "pkcs11/pkcs11.h"

class PinPad {
 public:
  // What a callback throws after Throw().
  struct Thrown : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  PinPad();
  ~PinPad();
  PinPad(const PinPad&) = delete;
  PinPad& operator=(const PinPad&) = delete;

  // What the next request gets.
  PinPad& Type(pkcs11_pin_type type, const std::string& pin);
  PinPad& Agree();  // To PIN_TYPE_UNLOCK.
  PinPad& Cancel(pkcs11_pin_type type);
  PinPad& Throw(pkcs11_pin_type type);
  // As many bytes as fit are written; `length` is claimed.
  PinPad& Claim(pkcs11_pin_type type, unsigned long length);
  // Runs within the request that was scripted last, before it is answered.
  PinPad& Meanwhile(std::function<void()> action);

  static pin_cb ask() { return &PinPad::Ask; }
  static error_cb tell() { return &PinPad::Tell; }

  // Where the component had its PIN buffer at the latest request.
  const unsigned char* last_buffer() const { return last_buffer_; }

 private:
  struct Answer {
    pkcs11_pin_type type;
    std::string text;                       // In the trace.
    std::optional<std::string> hidden_pin;  // In complement, as the tokens keep theirs.
    std::optional<unsigned long> claim;
    bool agrees;
    bool throws;
    std::function<void()> meanwhile;
  };

  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data);
  static void Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data);
  PinPad& Add(pkcs11_pin_type type, const std::string& text);
  bool Give(const Answer& answer, unsigned char* buffer, unsigned long* length);

  std::deque<Answer> script_;
  const unsigned char* last_buffer_ = nullptr;
};
