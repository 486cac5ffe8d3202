// The log of the host program. The smart-card component reports everything here that its results do
// not tell, in messages of one line.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

// Levels are numbers; a smaller number is more serious. The component uses three of them:
//   2  a provider library cannot be used at all
//   3  a failed operation or item, and the identity of a loaded provider
//   5  tracing of normal operation
//
// A Logfile has one sink, initially none, and a maximum level, initially 5. All member functions
// are thread-safe. Messages from several threads do not interleave.
class Logfile {
 public:
  // Receives each message exactly as it was logged, without a time stamp. Calls are serialised. The
  // function may itself log, which calls it recursively, and it may change the sink.
  using Function = std::function<void(const std::string& message, int level)>;

  Logfile() = default;
  ~Logfile();
  Logfile(const Logfile&) = delete;
  Logfile& operator=(const Logfile&) = delete;

  // Writes `message`, which may be any text, to the sink if `level` does not exceed the maximum
  // level. Standard error and files receive one line with the time in UTC, the level and the
  // message:
  //   2026-01-31T23:59:59.123Z 3 Loaded PKCS#11 module '/usr/lib/token.so'
  // Control characters (00 to 1F, 7F) are written as \xHH, so that one message cannot look like
  // two. Octets above 7F are written unchanged.
  //
  // Write errors are ignored, because a full disk must not prevent a signature. After a truncated
  // write, the next message starts on a new line. Exceptions from the sink function propagate.
  void Log(std::string message, int level);

  // Sets the maximum level. A negative level discards all messages of the component.
  void SetMaxLevel(int level);

  // Each of these replaces the sink.
  void LogToNothing();
  void LogToStandardError();
  // Writes to an open descriptor, as to standard error. The caller closes it, after choosing
  // another sink.
  void LogToDescriptor(int descriptor);
  // Appends to the file. A new file is readable and writable by its owner only (mode 0600). Returns
  // false if the file cannot be opened; errno is then set, and the sink is unchanged.
  bool LogToFile(const std::string& path);
  // An empty function has the effect of LogToNothing().
  void LogToFunction(Function function);

 private:
  void WriteLine(const std::string& line);
  void SetSink(int descriptor, bool owns_descriptor, std::shared_ptr<const Function> function);

  std::recursive_mutex mutex_;  // recursive, because sink functions may log
  int max_level_ = 5;
  int descriptor_ = -1;                       // standard error or a file; -1 for neither
  bool owns_descriptor_ = false;              // true for a file
  bool line_incomplete_ = false;              // the last line was truncated
  std::shared_ptr<const Function> function_;  // shared with a call in progress
};

// The log of the program. The host program chooses its sink.
extern Logfile logfile;
