// The program emulated_card: see kUsage.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "emulated_card/control.h"
#include "emulated_card/emulated_card.h"

namespace {

constexpr char kUsage[] =
    R"(emulated_card: a PIV smart card without hardware, for vsmartcard's virtual reader (vpcd)

Usage:
  emulated_card --port PORT --control SOCKET --state FILE [--pin PIN] [--puk PUK]
                --key REFERENCE KEY.pem CERTIFICATE.pem [--key ...]...
  emulated_card --port PORT --control SOCKET --blank
  emulated_card --send SOCKET COMMAND

The first form runs a PIV card until it is ended by a signal or the command quit. The second form
runs a card that no driver recognises. The card starts outside of the reader. The third form sends a
command to a running card and prints its answer.

Options:
  --port PORT       the TCP port of the reader's slot on 127.0.0.1
  --control SOCKET  the path of the socket on which the card waits for commands
  --state FILE      keeps the PIN, the PUK and their retry counters; created if it does not exist
  --pin PIN         the PIN of a new state file (default 123456)
  --puk PUK         the PUK of a new state file (default 12345678)
  --key REFERENCE KEY.pem CERTIFICATE.pem
                    an RSA-2048 key with its certificate; REFERENCE is 9A, 9C, 9D or 9E
  --blank           a card without keys and state

Commands and their answers:
  insert            "inserted", as soon as the reader has powered the card
  remove            "removed", as soon as the reader has noticed
  remove-on-sign    "armed": the card is removed when it is next asked for a signature
  remove-on INS     "armed": the card is removed at the next APDU with this instruction byte, in
                    hexadecimal
  state             "in" or "out", and how many tries of the PIN and of the PUK are left, for
                    example "in, PIN 3, PUK 3"
  quit              "bye", and the program ends

Exit status: 0 on success, 1 if no card answers on SOCKET, 2 for wrong arguments and errors.
)";

std::uint8_t HexByte(const std::string& text) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text.c_str(), &end, 16);
  if (text.empty() || *end != '\0' || value > 0xff)
    throw std::runtime_error("'" + text + "' is not a byte in hexadecimal");
  return static_cast<std::uint8_t>(value);
}

std::uint16_t Port(const std::string& text) {
  char* end = nullptr;
  const unsigned long port = std::strtoul(text.c_str(), &end, 10);
  if (*end != '\0' || port == 0 || port > 0xffff)
    throw std::runtime_error("the port must be a number between 1 and 65535");
  return static_cast<std::uint16_t>(port);
}

EmulatedCardOptions ParseOptions(const std::vector<std::string>& words) {
  EmulatedCardOptions options;
  std::size_t at = 0;
  const auto next = [&]() -> const std::string& {
    if (at == words.size())
      throw std::runtime_error("the last option needs an argument; see --help");
    return words[at++];
  };
  while (at < words.size()) {
    const std::string& word = next();
    if (word == "--port") {
      options.port = Port(next());
    } else if (word == "--control") {
      options.control = next();
    } else if (word == "--state") {
      options.state = next();
    } else if (word == "--pin") {
      options.pin = next();
    } else if (word == "--puk") {
      options.puk = next();
    } else if (word == "--blank") {
      options.blank = true;
    } else if (word == "--key") {
      const std::uint8_t reference = HexByte(next());
      const std::string& key_path = next();
      options.keys.push_back({reference, key_path, next()});
    } else {
      throw std::runtime_error("unknown option " + word + "; see --help");
    }
  }
  if (options.port == 0 || options.control.empty() || options.blank != options.state.empty())
    throw std::runtime_error(
        "--port, --control, and either --state or --blank are required; see --help");
  return options;
}

// Returns a descriptor that becomes readable when a signal asks the program to end.
int StopDescriptor() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

int SendCommand(const std::string& socket, const std::string& command) {
  const std::optional<std::string> answer = SendRequest(socket, command);
  if (!answer) {
    std::fprintf(stderr, "emulated_card: no card answers on %s\n", socket.c_str());
    return 1;
  }
  std::puts(answer->c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (words[0] == "--help" || words[0] == "-h") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  try {
    if (words.size() == 3 && words[0] == "--send")
      return SendCommand(words[1], words[2]);
    const EmulatedCardOptions options = ParseOptions(words);
    const int stop = StopDescriptor();
    EmulatedCard(options).Run(stop);
    close(stop);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "emulated_card: %s\n", error.what());
    return 2;
  }
}
