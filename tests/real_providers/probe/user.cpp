#include "real_providers/probe/user.h"

#include <algorithm>
#include <utility>

namespace {

void Type(const std::string& pin, unsigned char* buffer, unsigned long* length) {
  std::copy(pin.begin(), pin.end(), buffer);
  *length = pin.size();
}

}  // namespace

void User::WillUnlock(std::string so_pin, std::string new_pin) {
  so_pin_ = std::move(so_pin);
  new_pin_ = std::move(new_pin);
}

bool User::Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
  User& user = *static_cast<User*>(data);
  switch (type) {
    case PIN_TYPE_UNLOCK:
      return !user.so_pin_.empty();
    case PIN_TYPE_SO:
      Type(user.so_pin_, buffer, length);
      return !std::exchange(user.so_pin_offered_, true);
    case PIN_TYPE_NEW_USER:
      Type(user.new_pin_, buffer, length);
      return !std::exchange(user.new_pin_set_, true);
    case PIN_TYPE_USER:
      break;
  }
  if (user.new_pin_set_) {
    Type(user.new_pin_, buffer, length);
    return !std::exchange(user.new_pin_, "").empty();
  }
  if (user.pins_offered_ == user.max_offers_)
    return false;
  ++user.pins_offered_;
  Type(user.pin_, buffer, length);
  return true;
}

void User::Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data) {
  if (type == PIN_TYPE_USER && error == PIN_ERROR_LOCKED)
    static_cast<User*>(data)->locked_ = true;
}
