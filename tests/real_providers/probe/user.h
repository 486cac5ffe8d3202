// The person in front of the component: answers its questions, and counts.
#pragma once

#include <string>

#include "pkcs11/pkcs11.h"

class User {
 public:
  // Knows the PIN, and offers it up to `patience` times in a row.
  explicit User(std::string pin, int patience = 1) : pin_(std::move(pin)), patience_(patience) {}

  // Is also ready to unlock the PIN, and then goes on with the new one.
  void WillUnlock(std::string so_pin, std::string new_pin);

  // The callbacks for PKCS11Module::Sign(); `data` is a User.
  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data);
  static void Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data);

  int pins_offered() const { return pins_offered_; }
  bool was_locked() const { return locked_; }

 private:
  std::string pin_;
  int patience_;
  std::string so_pin_;
  std::string new_pin_;
  int pins_offered_ = 0;
  bool locked_ = false;
  bool so_pin_offered_ = false;
  bool new_pin_set_ = false;
};
