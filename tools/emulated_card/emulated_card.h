// A card that is inserted into a virtual reader and pulled out again at a word.
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

  std::uint16_t port = 0;  // of the reader
  std::string control;     // the path of the control socket
  std::string state;       // the path of the file for PIN and PUK
  std::string pin = "123456";
  std::string puk = "12345678";
  bool blank = false;  // a card that no driver knows, without keys and state
  std::vector<Key> keys;
};

class EmulatedCard {
 public:
  // Starts outside of the reader. Throws std::runtime_error.
  explicit EmulatedCard(const EmulatedCardOptions& options);

  // Serves the reader and obeys orders, until it is told to quit or `stop_descriptor` is readable.
  void Run(int stop_descriptor);

 private:
  Response Execute(const Command& command);
  void Serve();
  void Obey();
  void Insert();
  void Remove();
  void RemoveOn(int instruction);
  std::string State() const;
  void LosePower();

  std::uint16_t port_;
  bool blank_;
  std::string state_path_;
  Bytes atr_;
  PivCard piv_;
  ApduLayer apdus_;
  ReaderLink link_;
  Control control_;
  int remove_on_ = -1;    // the instruction byte at which the card is pulled out; -1: none
  bool leaving_ = false;  // pulled out, which the reader has not noticed yet
  bool quit_ = false;
};
