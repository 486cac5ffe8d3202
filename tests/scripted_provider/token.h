// A token of the scripted provider: its label, flags, PINs and objects. Every operation returns the
// token, so that a test describes it in one expression:
//
//   world.Slot(1).Token("Alice (PIN1)").UserPin("1234").Certificate("A", "\x01");
#pragma once

#include <p11-kit/pkcs11.h>

#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "scripted_provider/rsa_key.h"

namespace scripted {

struct Object {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;  // Given by the token when it is added.
  std::map<CK_ATTRIBUTE_TYPE, std::string> attributes;
  bool is_private = false;  // Seen by a logged-in user only.
  std::shared_ptr<const RsaKey> key;

  CK_OBJECT_CLASS object_class() const;
};

// The text padded to the width of a field; a longer text is cut.
std::string Padded(std::string text, std::size_t width, char padding = ' ');

// One PIN with its counter. It is kept in complement and compared where the caller has it, so that
// a search of the memory for a PIN finds no copy of ours.
class Pin {
 public:
  void Set(const std::string& pin, int tries);
  void SetComplement(const std::string& complement, int tries);
  void Change(const unsigned char* pin, std::size_t length);  // Counts from the start again.
  // Compares and counts: true resets the counter, false uses up a try.
  bool Try(const unsigned char* pin, std::size_t length);
  bool Try(const std::string& pin) {
    return Try(reinterpret_cast<const unsigned char*>(pin.data()), pin.size());
  }

  bool exists() const { return hidden_.has_value(); }
  bool locked() const { return exists() && left_ == 0; }
  int left() const { return left_; }
  void UseUp(int left) { left_ = left; }
  // CKF_USER_PIN_COUNT_LOW, _FINAL_TRY and _LOCKED, as the counter has it (PKCS#11 2.40, section
  // 3.2, CK_TOKEN_INFO). The flags of the SO PIN are these four bits higher.
  CK_FLAGS UserFlags() const;

 private:
  std::optional<std::string> hidden_;
  int tries_ = 0;
  int left_ = 0;
};

class Token {
 public:
  explicit Token(const std::string& text) { Label(text); }

  // Padded to 32 bytes; `padding` for tokens that pad with something else than blanks.
  Token& Label(const std::string& text, char padding = ' ');
  // Flags beside those that the PINs make.
  Token& Flags(CK_FLAGS flags);
  // What the token claims of its PINs, whatever the counters say.
  Token& PinFlags(CK_FLAGS flags);
  Token& LoginRequired() { return Flags(CKF_LOGIN_REQUIRED); }

  // A PIN and how many wrong ones in a row lock it. A user PIN makes the token ask for a login.
  Token& UserPin(const std::string& pin, int tries = 3);
  Token& SoPin(const std::string& pin, int tries = 3);
  // Tries that are left now; 0 is locked.
  Token& UserTriesLeft(int left);
  Token& SoTriesLeft(int left);
  // Lengths that the token accepts (at first 4 to 16); others are CKR_PIN_LEN_RANGE, at no cost.
  Token& PinLengths(CK_ULONG min, CK_ULONG max);
  // The wrong PIN that locks is answered with CKR_PIN_LOCKED rather than CKR_PIN_INCORRECT.
  Token& SaysLockedAtOnce();

  // A certificate object with this CKA_VALUE.
  Token& Certificate(const std::string& value, const std::string& id = std::string());
  // A private key object, seen after a login (on a token with a user PIN) or by everyone.
  Token& PrivateKey(const std::string& id, std::shared_ptr<const RsaKey> key);
  Token& Add(Object object);
  // Takes an object away, between two calls for instance.
  Token& Delete(CK_OBJECT_HANDLE handle);

  Object* Find(CK_OBJECT_HANDLE handle);
  CK_TOKEN_INFO Info() const;

  std::string label;  // 32 bytes.
  CK_FLAGS flags = CKF_TOKEN_INITIALIZED;
  std::optional<CK_FLAGS> pin_flags;
  CK_ULONG min_pin_len = 4;
  CK_ULONG max_pin_len = 16;
  bool says_locked_at_once = false;
  Pin user_pin;
  Pin so_pin;
  std::list<Object> objects;
  std::optional<CK_USER_TYPE> login;  // One for all sessions (PKCS#11 2.40, section 2.4).
};

}  // namespace scripted
