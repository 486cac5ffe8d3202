// The log of another host program, which has only the call in common with src/host.
#pragma once

#include <string>

namespace scripted_host {

class EventLog {
 public:
  // Returns the number of messages so far.
  int Log(const std::string& message, int level);
  void Clear() { messages_ = 0; }

 private:
  int messages_ = 0;
};

}  // namespace scripted_host

extern scripted_host::EventLog logfile;
