#include "scripted_provider/token.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "scripted_provider/provider.h"

namespace scripted {

namespace {

unsigned char Complement(unsigned char byte) {
  return static_cast<unsigned char>(~byte);
}

std::string ClassValue(CK_OBJECT_CLASS object_class) {
  return std::string(reinterpret_cast<const char*>(&object_class), sizeof object_class);
}

}  // namespace

CK_OBJECT_CLASS Object::object_class() const {
  CK_OBJECT_CLASS value = 0;
  const auto found = attributes.find(CKA_CLASS);
  if (found != attributes.end() && found->second.size() == sizeof value)
    std::memcpy(&value, found->second.data(), sizeof value);
  return value;
}

std::string Padded(std::string text, std::size_t width, char padding) {
  text.resize(width, padding);
  return text;
}

void Pin::Set(const std::string& pin, int tries) {
  tries_ = tries;
  Change(reinterpret_cast<const unsigned char*>(pin.data()), pin.size());
}

void Pin::SetComplement(const std::string& complement, int tries) {
  tries_ = left_ = tries;
  hidden_ = complement;
}

void Pin::Change(const unsigned char* pin, std::size_t length) {
  hidden_.emplace(length, '\0');
  std::transform(pin, pin + length, hidden_->begin(),
                 [](unsigned char byte) { return static_cast<char>(Complement(byte)); });
  left_ = tries_;
}

bool Pin::Try(const unsigned char* pin, std::size_t length) {
  const bool right = std::equal(pin, pin + length, hidden_->begin(), hidden_->end(),
                                [](unsigned char byte, char hidden) {
                                  return Complement(byte) == static_cast<unsigned char>(hidden);
                                });
  left_ = right ? tries_ : left_ - 1;
  return right;
}

CK_FLAGS Pin::UserFlags() const {
  if (!exists())
    return 0;
  return (left_ < tries_ ? CKF_USER_PIN_COUNT_LOW : 0) | (left_ == 1 ? CKF_USER_PIN_FINAL_TRY : 0) |
         (left_ == 0 ? CKF_USER_PIN_LOCKED : 0);
}

Token& Token::Label(const std::string& text, char padding) {
  label = Padded(text, sizeof CK_TOKEN_INFO().label, padding);
  return *this;
}

Token& Token::Flags(CK_FLAGS more) {
  flags |= more;
  return *this;
}

Token& Token::ReportedPinFlags(CK_FLAGS reported) {
  reported_pin_flags = reported;
  return *this;
}

Token& Token::UserPin(const std::string& pin, int tries) {
  user_pin.Set(pin, tries);
  return LoginRequired();
}

Token& Token::SoPin(const std::string& pin, int tries) {
  so_pin.Set(pin, tries);
  return *this;
}

Token& Token::UserTriesLeft(int left) {
  user_pin.UseUp(left);
  return *this;
}

Token& Token::SoTriesLeft(int left) {
  so_pin.UseUp(left);
  return *this;
}

Token& Token::PinLengths(CK_ULONG min, CK_ULONG max) {
  min_pin_len = min;
  max_pin_len = max;
  return *this;
}

Token& Token::ReturnsPinLockedOnLastTry() {
  returns_pin_locked_on_last_try = true;
  return *this;
}

Token& Token::EnteredOnPad(const std::string& pin) {
  pad_entries.push_back({CKR_OK, pin});
  return *this;
}

Token& Token::EntryOnPadFails(CK_RV rv) {
  pad_entries.push_back({rv, ""});
  return *this;
}

Token& Token::Certificate(const std::string& value, const std::string& id) {
  Object object;
  object.attributes = {{CKA_CLASS, ClassValue(CKO_CERTIFICATE)}, {CKA_VALUE, value}, {CKA_ID, id}};
  return Add(std::move(object));
}

Token& Token::PrivateKey(const std::string& id, std::shared_ptr<const support::RsaKey> key) {
  Object object;
  object.attributes = {{CKA_CLASS, ClassValue(CKO_PRIVATE_KEY)}, {CKA_ID, id}};
  object.is_private = user_pin.exists();
  object.key = std::move(key);
  return Add(std::move(object));
}

Token& Token::Add(Object object) {
  object.handle = Provider::Instance().NextObjectHandle();
  objects.push_back(std::move(object));
  return *this;
}

Token& Token::Delete(CK_OBJECT_HANDLE handle) {
  objects.remove_if([handle](const Object& object) { return object.handle == handle; });
  return *this;
}

Object* Token::Find(CK_OBJECT_HANDLE handle) {
  for (Object& object : objects) {
    if (object.handle == handle)
      return &object;
  }
  return nullptr;
}

CK_TOKEN_INFO Token::Info() const {
  CK_TOKEN_INFO info = {};
  std::memcpy(info.label, label.data(), sizeof info.label);
  // The manufacturer follows the label: reading beyond the label would show.
  std::memset(info.manufacturerID, 'M', sizeof info.manufacturerID);
  std::memset(info.model, ' ', sizeof info.model);
  std::memset(info.serialNumber, ' ', sizeof info.serialNumber);
  std::memset(info.utcTime, '0', sizeof info.utcTime);
  const CK_FLAGS counted = user_pin.UserFlags() | so_pin.UserFlags() << 4;
  info.flags = flags | reported_pin_flags.value_or(counted) |
               (user_pin.exists() ? CKF_USER_PIN_INITIALIZED : 0);
  info.ulMaxPinLen = max_pin_len;
  info.ulMinPinLen = min_pin_len;
  return info;
}

}  // namespace scripted
