#include "pkcs11/pin_pad.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "scripted_provider/trace.h"

namespace {

// The size of the component's PIN buffer.
constexpr unsigned long kCapacity = 128;

// The only pad, which the callbacks must be given as their data.
PinPad* the_pad = nullptr;

const char* TypeName(pkcs11_pin_type type) {
  switch (type) {
    case PIN_TYPE_USER:
      return "USER";
    case PIN_TYPE_SO:
      return "SO";
    case PIN_TYPE_UNLOCK:
      return "UNLOCK";
    case PIN_TYPE_NEW_USER:
      return "NEW_USER";
  }
  return "unknown";
}

const char* ErrorName(pkcs11_pin_error error) {
  switch (error) {
    case PIN_ERROR_INCORRECT:
      return "INCORRECT";
    case PIN_ERROR_INVALID:
      return "INVALID";
    case PIN_ERROR_LOCKED:
      return "LOCKED";
  }
  return "unknown";
}

char Complement(char byte) {
  return static_cast<char>(~byte);
}

void Note(const std::string& line) {
  scripted::Trace::Instance().Add(line);
}

// The buffer must be cleared: it may not hold anything of an earlier PIN.
void CheckBuffer(pkcs11_pin_type type, const unsigned char* buffer, unsigned long length) {
  if (type == PIN_TYPE_UNLOCK) {
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(length, 0u);
    return;
  }
  ASSERT_NE(buffer, nullptr);
  ASSERT_EQ(length, kCapacity);
  EXPECT_TRUE(std::all_of(buffer, buffer + length, [](unsigned char byte) { return byte == 0; }));
}

}  // namespace

PinPad::PinPad() {
  EXPECT_EQ(the_pad, nullptr);
  the_pad = this;
}

PinPad::~PinPad() {
  the_pad = nullptr;
  for (const Answer& answer : script_)
    ADD_FAILURE() << "the component did not ask: " << TypeName(answer.type) << " = " << answer.text;
}

PinPad& PinPad::Add(pkcs11_pin_type type, const std::string& text) {
  script_.push_back({type, text, std::nullopt, std::nullopt, false, false, nullptr});
  return *this;
}

PinPad& PinPad::Type(pkcs11_pin_type type, const std::string& pin) {
  Add(type, "PIN of " + std::to_string(pin.size()) + " bytes");
  std::string hidden = pin;
  std::transform(hidden.begin(), hidden.end(), hidden.begin(), Complement);
  script_.back().hidden_pin = hidden;
  script_.back().agrees = true;
  return *this;
}

PinPad& PinPad::Agree() {
  Add(PIN_TYPE_UNLOCK, "yes");
  script_.back().agrees = true;
  return *this;
}

PinPad& PinPad::Cancel(pkcs11_pin_type type) {
  return Add(type, type == PIN_TYPE_UNLOCK ? "no" : "cancel");
}

PinPad& PinPad::Throw(pkcs11_pin_type type) {
  Add(type, "exception");
  script_.back().throws = true;
  return *this;
}

PinPad& PinPad::Claim(pkcs11_pin_type type, unsigned long length) {
  Type(type, std::string(std::min(length, kCapacity), '7'));
  script_.back().claim = length;
  script_.back().text = "claim of " + std::to_string(length) + " bytes";
  return *this;
}

PinPad& PinPad::Meanwhile(std::function<void()> action) {
  script_.back().meanwhile = std::move(action);
  return *this;
}

bool PinPad::Apply(const Answer& answer, unsigned char* buffer, unsigned long* length) {
  if (answer.meanwhile)
    answer.meanwhile();
  if (answer.hidden_pin) {
    std::transform(answer.hidden_pin->begin(), answer.hidden_pin->end(), buffer, Complement);
    *length = answer.claim.value_or(answer.hidden_pin->size());
  }
  if (answer.throws)
    throw Thrown(answer.text);
  return answer.agrees;
}

bool PinPad::Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
  EXPECT_EQ(data, the_pad);
  PinPad& pad = *the_pad;
  CheckBuffer(type, buffer, *length);
  if (pad.script_.empty() || pad.script_.front().type != type) {
    ADD_FAILURE() << "unexpected request: " << TypeName(type);
    Note(std::string("ask ") + TypeName(type) + " = unexpected");
    return false;
  }
  const Answer answer = pad.script_.front();
  pad.script_.pop_front();
  Note(std::string("ask ") + TypeName(type) + " = " + answer.text);
  return pad.Apply(answer, buffer, length);
}

void PinPad::Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data) {
  EXPECT_EQ(data, the_pad);
  Note(std::string("tell ") + TypeName(type) + ' ' + ErrorName(error));
}
