#include "host/logfile.h"

#include "scripted_host/scripted_host.h"

scripted_host::EventLog logfile;

int scripted_host::EventLog::Log(const std::string& message, int level) {
  Host::Instance().Logged(message, level);
  return ++messages_;
}
