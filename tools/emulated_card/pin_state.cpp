#include "emulated_card/pin_state.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace {

constexpr int kTries = 3;

void ReadLine(std::istream& file, const std::string& expected_word, Pin* pin) {
  std::string word;
  if (!(file >> word >> pin->value >> pin->tries_left >> pin->max_tries) || word != expected_word ||
      pin->tries_left < 0 || pin->tries_left > pin->max_tries || pin->max_tries > 15)
    throw std::runtime_error("the state file has no line '" + expected_word + " VALUE LEFT MAX'");
}

std::string Line(const char* word, const Pin& pin) {
  return std::string(word) + " " + pin.value + " " + std::to_string(pin.tries_left) + " " +
         std::to_string(pin.max_tries) + "\n";
}

}  // namespace

PinState PinState::LoadOrCreate(const std::string& path, const std::string& pin,
                                const std::string& puk) {
  PinState state;
  if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
    state = {{pin, kTries, kTries}, {puk, kTries, kTries}};
    if (!state.Save(path))
      throw std::runtime_error("cannot write the state file " + path);
    return state;
  }
  std::ifstream file(path);
  ReadLine(file, "pin", &state.pin);
  ReadLine(file, "puk", &state.puk);
  return state;
}

bool PinState::Save(const std::string& path) const {
  const std::string text = Line("pin", pin) + Line("puk", puk);
  const std::string aside = path + ".new";
  const int file = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0)
    return false;
  const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                       fsync(file) == 0;
  return (close(file) == 0) && written && std::rename(aside.c_str(), path.c_str()) == 0;
}
