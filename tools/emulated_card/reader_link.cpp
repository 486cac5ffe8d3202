#include "emulated_card/reader_link.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace {

// vpcd sends the length and the content separately. With delayed acknowledgements, the kernel's
// default, every APDU would take 40 ms.
void SetOption(int socket, int option) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, option, &on, sizeof on);
}

}  // namespace

bool ReaderLink::Insert(std::uint16_t port) {
  Remove();
  socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // The socket functions take every kind of address as a sockaddr.
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Remove();
    return false;
  }
  SetOption(socket_, TCP_NODELAY);
  SetOption(socket_, TCP_QUICKACK);
  return true;
}

void ReaderLink::Remove() {
  if (inserted())
    close(std::exchange(socket_, -1));
}

void ReaderLink::HangUp() {
  shutdown(socket_, SHUT_WR);
}

ReaderLink::Message ReaderLink::Receive(Bytes* command) {
  Bytes length(2);
  if (!ReceiveAll(&length))
    return Message::kDisconnected;
  command->resize(std::size_t{length[0]} << 8 | length[1]);
  if (!ReceiveAll(command))
    return Message::kDisconnected;
  if (command->size() != 1)
    return command->empty() ? Message::kNone : Message::kCommand;
  switch (command->front()) {
    case 0:
      return Message::kPowerOff;
    case 1:
      return Message::kPowerOn;
    case 2:
      return Message::kReset;
    case 4:
      return Message::kGetAtr;
    default:
      return Message::kNone;
  }
}

bool ReaderLink::Send(const Bytes& answer) {
  const Bytes message = Bytes{static_cast<std::uint8_t>(answer.size() >> 8),
                              static_cast<std::uint8_t>(answer.size())} +
                        answer;
  return send(socket_, message.data(), message.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(message.size());
}

bool ReaderLink::ReceiveAll(Bytes* bytes) {
  std::size_t received = 0;
  while (received < bytes->size()) {
    const ssize_t result = recv(socket_, bytes->data() + received, bytes->size() - received, 0);
    if (result < 0 && errno == EINTR)
      continue;
    if (result <= 0)
      return false;
    SetOption(socket_, TCP_QUICKACK);  // The kernel clears this option again.
    received += static_cast<std::size_t>(result);
  }
  return true;
}
