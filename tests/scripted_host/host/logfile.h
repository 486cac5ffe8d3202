// A host program's own log, which is not ours in anything but the call.
#pragma once

#include <string>

namespace scripted_host {

class EventLog {
 public:
  // How many messages there have been.
  int Log(const std::string& message, int level);
  void Clear() { messages_ = 0; }

 private:
  int messages_ = 0;
};

}  // namespace scripted_host

extern scripted_host::EventLog logfile;
