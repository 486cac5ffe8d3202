// A token of the scripted provider: its label, flags, PINs and objects. Setters return the token,
// so that one expression describes it:
//
//   provider.Slot(1).Token("Alice (PIN1)").UserPin("1234").Certificate("A", "\x01");
#pragma once

#include <p11-kit/pkcs11.h>

#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "support/rsa_key.h"

namespace scripted {

struct Object {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;  // Set by Token::Add().
  std::map<CK_ATTRIBUTE_TYPE, std::string> attributes;
  bool is_private = false;  // Visible only while the user is logged in.
  std::shared_ptr<const support::RsaKey> key;

  CK_OBJECT_CLASS object_class() const;
};

// Returns `text` padded or cut to the width of a fixed-size field.
std::string Padded(std::string text, std::size_t width, char padding = ' ');

// One PIN with its retry counter. Stores the bitwise complement and compares in the caller's
// buffer, so that tests that search the memory for a PIN do not find a copy made by the provider.
class Pin {
 public:
  void Set(const std::string& pin, int tries);
  void SetComplement(const std::string& complement, int tries);
  void Change(const unsigned char* pin, std::size_t length);  // Also resets the counter.
  // Returns true and resets the counter if the PIN is right; otherwise uses up one try.
  bool Try(const unsigned char* pin, std::size_t length);
  bool Try(const std::string& pin) {
    return Try(reinterpret_cast<const unsigned char*>(pin.data()), pin.size());
  }

  bool exists() const { return hidden_.has_value(); }
  bool locked() const { return exists() && left_ == 0; }
  int left() const { return left_; }
  void UseUp(int left) { left_ = left; }
  // Returns CKF_USER_PIN_COUNT_LOW, _FINAL_TRY and _LOCKED according to the counter (PKCS#11 2.40,
  // section 3.2, CK_TOKEN_INFO). The flags of the SO PIN are the same, shifted left by four bits.
  CK_FLAGS UserFlags() const;

 private:
  std::optional<std::string> hidden_;
  int tries_ = 0;
  int left_ = 0;
};

class Token {
 public:
  explicit Token(const std::string& text) { Label(text); }

  // Padded to 32 bytes with `padding`: some tokens do not pad with blanks.
  Token& Label(const std::string& text, char padding = ' ');
  // Adds flags to those that follow from the PINs.
  Token& Flags(CK_FLAGS flags);
  // The token reports these PIN flags, whatever the counters say.
  Token& ReportedPinFlags(CK_FLAGS flags);
  Token& LoginRequired() { return Flags(CKF_LOGIN_REQUIRED); }

  // Sets a PIN and how many wrong ones in a row lock it. A user PIN sets CKF_LOGIN_REQUIRED.
  Token& UserPin(const std::string& pin, int tries = 3);
  Token& SoPin(const std::string& pin, int tries = 3);
  // Sets how many tries are left; 0 means locked.
  Token& UserTriesLeft(int left);
  Token& SoTriesLeft(int left);
  // Sets the PIN lengths that the token accepts, by default 4 to 16. Other lengths are rejected
  // with CKR_PIN_LEN_RANGE and use up no try.
  Token& PinLengths(CK_ULONG min, CK_ULONG max);
  // The wrong PIN that uses up the last try is answered with CKR_PIN_LOCKED, not CKR_PIN_INCORRECT.
  Token& ReturnsPinLockedOnLastTry();

  // The token is in a reader with a PIN pad (CKF_PROTECTED_AUTHENTICATION_PATH): a null PIN starts
  // an entry there. A PIN that is passed is used as without the pad, as OpenSC does it. The entries
  // are used in the order in which they were added.
  Token& PinPad() { return Flags(CKF_PROTECTED_AUTHENTICATION_PATH); }
  Token& EnteredOnPad(const std::string& pin);
  // The entry fails: C_Login or C_InitPIN returns `rv`.
  Token& EntryOnPadFails(CK_RV rv);

  // Adds a certificate object with this CKA_VALUE and CKA_ID.
  Token& Certificate(const std::string& value, const std::string& id = std::string());
  // Adds a private key object. It is private (visible only after a login) if the token has a user
  // PIN.
  Token& PrivateKey(const std::string& id, std::shared_ptr<const support::RsaKey> key);
  Token& Add(Object object);
  // Deletes an object, for example between two calls.
  Token& Delete(CK_OBJECT_HANDLE handle);

  Object* Find(CK_OBJECT_HANDLE handle);
  CK_TOKEN_INFO Info() const;

  std::string label;  // 32 bytes.
  CK_FLAGS flags = CKF_TOKEN_INITIALIZED;
  std::optional<CK_FLAGS> reported_pin_flags;
  CK_ULONG min_pin_len = 4;
  CK_ULONG max_pin_len = 16;
  bool returns_pin_locked_on_last_try = false;
  Pin user_pin;
  Pin so_pin;
  struct PadEntry {
    CK_RV rv;
    std::string pin;
  };
  std::deque<PadEntry> pad_entries;
  std::list<Object> objects;
  std::optional<CK_USER_TYPE> login;  // Shared by all sessions (PKCS#11 2.40, section 2.4).
};

}  // namespace scripted
