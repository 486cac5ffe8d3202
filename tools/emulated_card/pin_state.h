// The state of the card: its PIN and PUK, and how many tries each has left.
#pragma once

#include <string>

// One secret with its retry counter.
struct Pin {
  std::string value;
  int tries_left = 0;
  int max_tries = 0;

  bool blocked() const { return tries_left == 0; }
};

// Stored in a text file of two lines, "pin VALUE LEFT MAX" and "puk VALUE LEFT MAX", so that it
// survives removal and the end of the program. The file is replaced atomically.
struct PinState {
  Pin pin;
  Pin puk;

  // Reads the file. If it does not exist, creates it with `pin`, `puk` and three tries each. Throws
  // std::runtime_error if the file is malformed or cannot be written.
  static PinState LoadOrCreate(const std::string& path, const std::string& pin,
                               const std::string& puk);
  // Returns false if the file cannot be written; it is then unchanged.
  bool Save(const std::string& path) const;
};
