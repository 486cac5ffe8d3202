// Requests to a running card over a Unix socket: the caller sends one line and receives one line.
#pragma once

#include <functional>
#include <optional>
#include <string>

class Control {
 public:
  // Listens on a new socket at `path`. Throws std::runtime_error on failure.
  explicit Control(const std::string& path);
  // Removes the socket.
  ~Control();
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

  int descriptor() const { return listener_; }

  // Accepts a waiting caller and returns its request. Returns nothing if no caller is waiting, if
  // the caller sends no line within ten seconds, or if the last request has not been answered yet.
  // Every request must be answered with Answer().
  std::optional<std::string> TakeRequest();
  void Answer(const std::string& line);
  // Returns true if a caller waits for its answer.
  bool answer_pending() const { return caller_ >= 0; }

 private:
  std::string path_;
  int listener_ = -1;
  int caller_ = -1;
};

// Sends a request to the card that listens at `path` and returns its answer. Returns nothing if
// there is no such card or it does not answer within ten seconds.
std::optional<std::string> SendRequest(const std::string& path, const std::string& request);
