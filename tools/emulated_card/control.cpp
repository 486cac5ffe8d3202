#include "emulated_card/control.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kTimeoutSeconds = 10;

sockaddr_un Address(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path)
    throw std::runtime_error("the path of the control socket is too long: " + path);
  std::memcpy(address.sun_path, path.c_str(), path.size());
  return address;
}

void SetTimeout(int socket) {
  timeval timeout = {};
  timeout.tv_sec = kTimeoutSeconds;
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
}

std::optional<std::string> ReadLine(int socket) {
  std::string line;
  char byte = 0;
  while (recv(socket, &byte, 1, 0) == 1) {
    if (byte == '\n')
      return line;
    line += byte;
  }
  return std::nullopt;
}

void WriteLine(int socket, const std::string& line) {
  const std::string text = line + "\n";
  // A failure means that the caller has gone and needs no answer.
  [[maybe_unused]] const ssize_t sent = send(socket, text.data(), text.size(), MSG_NOSIGNAL);
}

}  // namespace

Control::Control(const std::string& path)
    : path_(path), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  const sockaddr_un address = Address(path);
  // The socket functions take every kind of address as a sockaddr.
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener_, 4) != 0) {
    close(listener_);
    throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
  }
}

Control::~Control() {
  if (caller_ >= 0)
    close(caller_);
  close(listener_);
  unlink(path_.c_str());
}

std::optional<std::string> Control::TakeRequest() {
  if (answer_pending())
    return std::nullopt;
  caller_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  if (caller_ < 0)
    return std::nullopt;
  SetTimeout(caller_);
  std::optional<std::string> request = ReadLine(caller_);
  if (!request)
    close(std::exchange(caller_, -1));
  return request;
}

void Control::Answer(const std::string& line) {
  WriteLine(caller_, line);
  close(std::exchange(caller_, -1));
}

std::optional<std::string> SendRequest(const std::string& path, const std::string& request) {
  const int caller = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = Address(path);
  std::optional<std::string> answer;
  if (connect(caller, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    SetTimeout(caller);
    WriteLine(caller, request);
    answer = ReadLine(caller);
  }
  close(caller);
  return answer;
}
