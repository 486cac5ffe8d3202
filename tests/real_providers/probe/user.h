// A user who answers the PIN callbacks of the component and counts how often a PIN was offered.
#pragma once

#include <string>

#include "pkcs11/pkcs11.h"

class User {
 public:
  // Offers `pin`, at most `max_offers` times.
  explicit User(std::string pin, int max_offers = 1)
      : pin_(std::move(pin)), max_offers_(max_offers) {}

  // Also unlocks a locked PIN with `so_pin`, and then offers `new_pin`.
  void WillUnlock(std::string so_pin, std::string new_pin);

  // The callbacks for PKCS11Module::Sign(); `data` is a User.
  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data);
  static void Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data);

  int pins_offered() const { return pins_offered_; }
  bool was_locked() const { return locked_; }

 private:
  std::string pin_;
  int max_offers_;
  std::string so_pin_;
  std::string new_pin_;
  int pins_offered_ = 0;
  bool locked_ = false;
  bool so_pin_offered_ = false;
  bool new_pin_set_ = false;
};
