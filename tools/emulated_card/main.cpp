// A smart card without hardware. See kUsage.
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

constexpr char kUsage[] = R"(emulated_card - a PIV card in a virtual reader

  emulated_card --port PORT --control SOCKET --state FILE [--pin PIN] [--puk PUK]
                --key 9A KEY.pem CERTIFICATE.pem [--key 9C ...]...
  emulated_card --port PORT --control SOCKET --blank
  emulated_card --tell SOCKET ORDER

The first form is a card with up to four keys (9A, 9C, 9D, 9E) and with PIN and PUK in FILE, which
is made where it is missing (123456 and 12345678 unless said otherwise). The second is a card that
no driver knows. Both start outside of the reader and run until they are ended or told to quit. The
third gives an order to a card and prints its answer:

  insert            "inserted" as soon as the reader has powered the card
  remove            "removed" as soon as the reader has noticed
  remove-on-sign    "will": the card is pulled out when it is next asked for a signature
  remove-on INS     the same at the next command with this instruction byte (hexadecimal)
  state             "in" or "out", and the tries that PIN and PUK have left
  quit              "bye"
)";

std::uint8_t HexByte(const std::string& text) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text.c_str(), &end, 16);
  if (text.empty() || *end != '\0' || value > 0xff)
    throw std::runtime_error("'" + text + "' is no byte in hexadecimal");
  return static_cast<std::uint8_t>(value);
}

EmulatedCardOptions ParseOptions(const std::vector<std::string>& words) {
  EmulatedCardOptions options;
  std::size_t at = 0;
  const auto next = [&]() -> const std::string& {
    if (at == words.size())
      throw std::runtime_error(words.back() + " needs more words");
    return words[at++];
  };
  while (at < words.size()) {
    const std::string& word = next();
    if (word == "--port") {
      options.port = static_cast<std::uint16_t>(std::stoul(next()));
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
      throw std::runtime_error("there is no option " + word);
    }
  }
  if (options.port == 0 || options.control.empty() || options.blank != options.state.empty())
    throw std::runtime_error("see --help");
  return options;
}

// Readable when somebody wants the program to end.
int StopDescriptor() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

int TellCard(const std::string& socket, const std::string& order) {
  const std::optional<std::string> answer = Tell(socket, order);
  if (!answer) {
    std::fputs("emulated_card: no card answers\n", stderr);
    return 1;
  }
  std::puts(answer->c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty() || words[0] == "--help") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  try {
    if (words.size() == 3 && words[0] == "--tell")
      return TellCard(words[1], words[2]);
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
