#include "emulated_card/emulated_card.h"

#include <poll.h>

#include <cstdlib>
#include <utility>

namespace {

constexpr int kGeneralAuthenticate = 0x87;

// Protocol T=1. No driver recognises the historical bytes.
Bytes AnswerToReset(const std::string& historical) {
  const auto t0 = static_cast<std::uint8_t>(0x80 | historical.size());
  Bytes atr = Bytes{0x3b, t0, 0x01} + Bytes(historical.begin(), historical.end());
  std::uint8_t check = 0;  // ISO/IEC 7816-3, section 8.2.5: the XOR of T0 to TCK is 0.
  for (std::size_t i = 1; i < atr.size(); ++i)
    check = static_cast<std::uint8_t>(check ^ atr[i]);
  atr.push_back(check);
  return atr;
}

std::map<std::uint8_t, CardKey> LoadKeys(const EmulatedCardOptions& options) {
  std::map<std::uint8_t, CardKey> keys;
  for (const EmulatedCardOptions::Key& key : options.keys)
    keys.emplace(key.reference, CardKey(key.key_path, key.certificate_path));
  return keys;
}

PinState LoadState(const EmulatedCardOptions& options) {
  if (options.blank)
    return {};
  return PinState::LoadOrCreate(options.state, options.pin, options.puk);
}

}  // namespace

EmulatedCard::EmulatedCard(const EmulatedCardOptions& options)
    : port_(options.port),
      blank_(options.blank),
      state_path_(options.state),
      atr_(AnswerToReset(blank_ ? "blank" : "cardcert PIV")),
      piv_(LoadKeys(options), LoadState(options), state_path_),
      apdus_([this](const Command& command) { return Execute(command); }),
      control_(options.control) {}

void EmulatedCard::Run(int stop_descriptor) {
  while (!quit_) {
    // poll() ignores the descriptor -1, which link_ has while the card is outside of the reader.
    const int control = control_.answer_pending() ? -1 : control_.descriptor();
    pollfd inputs[] = {
        {stop_descriptor, POLLIN, 0}, {control, POLLIN, 0}, {link_.descriptor(), POLLIN, 0}};
    if (poll(inputs, 3, -1) < 0)
      continue;
    if (inputs[0].revents != 0)
      return;
    if (inputs[2].revents != 0)
      HandleReader();
    if (inputs[1].revents != 0)
      HandleRequest();
  }
}

Response EmulatedCard::Execute(const Command& command) {
  if (remove_on_ == command.ins) {
    Remove();
    return {};
  }
  return blank_ ? Response{kUnknownInstruction, {}} : piv_.Execute(command);
}

void EmulatedCard::HandleReader() {
  Bytes command;
  const ReaderLink::Message message = link_.Receive(&command);
  if (removing_ && message != ReaderLink::Message::kDisconnected)
    return;
  switch (message) {
    case ReaderLink::Message::kDisconnected:
      Remove();
      if (control_.answer_pending())
        control_.Answer("removed");
      return;
    case ReaderLink::Message::kCommand: {
      const Bytes answer = apdus_.Exchange(command);
      if (link_.inserted())
        link_.Send(answer);
      return;
    }
    case ReaderLink::Message::kGetAtr:
      link_.Send(atr_);
      return;
    case ReaderLink::Message::kPowerOn:
      ResetPower();
      if (control_.answer_pending())
        control_.Answer("inserted");
      return;
    case ReaderLink::Message::kPowerOff:
    case ReaderLink::Message::kReset:
      ResetPower();
      return;
    case ReaderLink::Message::kNone:
      return;
  }
}

void EmulatedCard::HandleRequest() {
  const std::optional<std::string> request = control_.TakeRequest();
  if (!request)
    return;
  if (*request == "insert") {
    Insert();
  } else if (*request == "remove") {
    removing_ = link_.inserted();
    if (removing_)
      link_.HangUp();  // HandleReader() answers when the reader has noticed.
    else
      control_.Answer("removed");
  } else if (*request == "remove-on-sign") {
    RemoveOn(kGeneralAuthenticate);
  } else if (request->rfind("remove-on ", 0) == 0) {
    RemoveOn(static_cast<int>(std::strtol(request->c_str() + 10, nullptr, 16)));
  } else if (*request == "state") {
    control_.Answer(State());
  } else if (*request == "quit") {
    quit_ = true;
    control_.Answer("bye");
  } else {
    control_.Answer("unknown command");
  }
}

void EmulatedCard::Insert() {
  if (link_.inserted())
    control_.Answer("already inserted");
  else if (!link_.Insert(port_))
    control_.Answer("no reader listens on this port");
  // On success HandleReader() answers when the reader powers the card.
}

void EmulatedCard::Remove() {
  remove_on_ = -1;
  removing_ = false;
  link_.Remove();
  ResetPower();
}

void EmulatedCard::RemoveOn(int instruction) {
  remove_on_ = instruction;
  control_.Answer("armed");
}

std::string EmulatedCard::State() const {
  const std::string where = link_.inserted() ? "in" : "out";
  if (blank_)
    return where;
  const PinState state = PinState::LoadOrCreate(state_path_, "", "");
  return where + ", PIN " + std::to_string(state.pin.tries_left) + ", PUK " +
         std::to_string(state.puk.tries_left);
}

void EmulatedCard::ResetPower() {
  apdus_.Reset();
  piv_.Reset();
}
