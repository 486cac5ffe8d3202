// A card that can be inserted into a virtual reader and removed on request.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "emulated_card/apdu.h"
#include "emulated_card/control.h"
#include "emulated_card/piv_card.h"
#include "emulated_card/reader_link.h"

struct EmulatedCardOptions {
  struct Key {
    std::uint8_t reference;
    std::string key_path;
    std::string certificate_path;
  };

  std::uint16_t port = 0;  // The TCP port of the reader.
  std::string control;     // The path of the control socket.
  std::string state;       // The path of the file with the PIN and the PUK.
  std::string pin = "123456";
  std::string puk = "12345678";
  bool blank = false;  // A card that no driver recognises, without keys and state.
  std::vector<Key> keys;
};

class EmulatedCard {
 public:
  // The card starts outside of the reader. Throws std::runtime_error if a file cannot be used or
  // the control socket cannot be made.
  explicit EmulatedCard(const EmulatedCardOptions& options);

  // Answers the reader and handles requests, until the request "quit" or until `stop_descriptor`
  // becomes readable.
  void Run(int stop_descriptor);

 private:
  Response Execute(const Command& command);
  void HandleReader();
  void HandleRequest();
  void Insert();
  void Remove();
  void RemoveOn(int instruction);
  std::string State() const;
  void ResetPower();

  std::uint16_t port_;
  bool blank_;
  std::string state_path_;
  Bytes atr_;
  PivCard piv_;
  ApduLayer apdus_;
  ReaderLink link_;
  Control control_;
  int remove_on_ = -1;     // The instruction byte at which the card is removed, or -1.
  bool removing_ = false;  // Removed, but the reader has not noticed yet.
  bool quit_ = false;
};
