// How a test tells a card what to do: words over a Unix socket, one line an order, one line an
// answer.
#pragma once

#include <functional>
#include <optional>
#include <string>

class Control {
 public:
  // Listens on a new socket at `path`. Throws std::runtime_error.
  explicit Control(const std::string& path);
  // Closes and removes the socket.
  ~Control();
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

  int descriptor() const { return listener_; }

  // Takes one caller who is waiting, if any, and reads the order. The caller waits until Answer().
  std::optional<std::string> Take();
  void Answer(const std::string& line);
  bool answer_pending() const { return caller_ >= 0; }

 private:
  std::string path_;
  int listener_ = -1;
  int caller_ = -1;
};

// The caller's side. Nothing: nobody listens at `path`, or no answer came within ten seconds.
std::optional<std::string> Tell(const std::string& path, const std::string& order);
