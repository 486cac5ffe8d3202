#include "emulated_card/emulated_card.h"

#include <poll.h>

#include <cstdlib>
#include <utility>

namespace {

constexpr int kGeneralAuthenticate = 0x87;

// T=1, and no historical bytes that a driver would know.
Bytes AnswerToReset(const std::string& historical) {
  const auto t0 = static_cast<std::uint8_t>(0x80 | historical.size());
  Bytes atr = Bytes{0x3b, t0, 0x01} + Bytes(historical.begin(), historical.end());
  std::uint8_t check = 0;  // ISO/IEC 7816-3, section 8.2.5: T0 to TCK come out as 0.
  for (std::size_t i = 1; i < atr.size(); ++i)
    check = static_cast<std::uint8_t>(check ^ atr[i]);
  atr.push_back(check);
  return atr;
}

std::map<std::uint8_t, RsaKey> LoadKeys(const EmulatedCardOptions& options) {
  std::map<std::uint8_t, RsaKey> keys;
  for (const EmulatedCardOptions::Key& key : options.keys)
    keys.emplace(key.reference, RsaKey(key.key_path, key.certificate_path));
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
    // poll() skips a descriptor of -1, that of a card outside of the reader among them.
    const int control = control_.answer_pending() ? -1 : control_.descriptor();
    pollfd inputs[] = {
        {stop_descriptor, POLLIN, 0}, {control, POLLIN, 0}, {link_.descriptor(), POLLIN, 0}};
    if (poll(inputs, 3, -1) < 0)
      continue;
    if (inputs[0].revents != 0)
      return;
    if (inputs[2].revents != 0)
      Serve();
    if (inputs[1].revents != 0)
      Obey();
  }
}

Response EmulatedCard::Execute(const Command& command) {
  if (remove_on_ == command.ins) {
    Remove();
    return {};
  }
  return blank_ ? Response{kUnknownInstruction, {}} : piv_.Execute(command);
}

void EmulatedCard::Serve() {
  Bytes command;
  const ReaderLink::Message message = link_.Receive(&command);
  if (leaving_ && message != ReaderLink::Message::kGone)
    return;
  switch (message) {
    case ReaderLink::Message::kGone:
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
    case ReaderLink::Message::kAskAtr:
      link_.Send(atr_);
      return;
    case ReaderLink::Message::kPowerOn:
      LosePower();
      if (control_.answer_pending())
        control_.Answer("inserted");
      return;
    case ReaderLink::Message::kPowerOff:
    case ReaderLink::Message::kReset:
      LosePower();
      return;
    case ReaderLink::Message::kNone:
      return;
  }
}

void EmulatedCard::Obey() {
  const std::optional<std::string> order = control_.Take();
  if (!order)
    return;
  if (*order == "insert") {
    Insert();
  } else if (*order == "remove") {
    leaving_ = link_.inserted();
    if (leaving_)
      link_.HangUp();  // Answered when the reader has noticed.
    else
      control_.Answer("removed");
  } else if (*order == "remove-on-sign") {
    RemoveOn(kGeneralAuthenticate);
  } else if (order->rfind("remove-on ", 0) == 0) {
    RemoveOn(static_cast<int>(std::strtol(order->c_str() + 10, nullptr, 16)));
  } else if (*order == "state") {
    control_.Answer(State());
  } else if (*order == "quit") {
    quit_ = true;
    control_.Answer("bye");
  } else {
    control_.Answer("does not know this order");
  }
}

void EmulatedCard::Insert() {
  if (link_.inserted())
    control_.Answer("is inserted already");
  else if (!link_.Insert(port_))
    control_.Answer("nobody listens on the port");
  // Otherwise answered when the reader gives it power.
}

void EmulatedCard::Remove() {
  remove_on_ = -1;
  leaving_ = false;
  link_.Remove();
  LosePower();
}

void EmulatedCard::RemoveOn(int instruction) {
  remove_on_ = instruction;
  control_.Answer("will");
}

std::string EmulatedCard::State() const {
  const std::string where = link_.inserted() ? "in" : "out";
  if (blank_)
    return where;
  const PinState state = PinState::LoadOrCreate(state_path_, "", "");
  return where + ", PIN " + std::to_string(state.pin.tries_left) + ", PUK " +
         std::to_string(state.puk.tries_left);
}

void EmulatedCard::LosePower() {
  apdus_.Reset();
  piv_.Reset();
}
