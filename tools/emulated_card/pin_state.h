// The card's memory: its PIN and PUK, and how many tries each has left.
#pragma once

#include <string>

// One secret with its retry counter.
struct Pin {
  std::string value;
  int tries_left = 0;
  int max_tries = 0;

  bool blocked() const { return tries_left == 0; }
};

// Both live in a text file of two lines, "pin VALUE LEFT MAX" and "puk VALUE LEFT MAX", and so
// survive removal and the end of the program. The file is replaced as a whole: whoever pulls the
// plug finds the old counters or the new ones.
struct PinState {
  Pin pin;
  Pin puk;

  // Reads the file; where there is none, makes one with three tries each. Throws
  // std::runtime_error.
  static PinState LoadOrCreate(const std::string& path, const std::string& pin,
                               const std::string& puk);
  // False: the file could not be written and is as it was.
  bool Save(const std::string& path) const;
};
