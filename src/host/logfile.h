// The host program's log. Everything that the smart-card component has to say beyond its results
// goes here, one line a message.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

// Levels are plain numbers, smaller is more serious. The component uses three of them:
//   2  a provider library cannot be used at all
//   3  one operation or one item failed, or a fact about a provider that was loaded
//   5  tracing of normal work
//
// A Logfile has one sink at a time (at first none) and a highest level that is kept (at first 5).
// Every operation may be called from any thread at any time; messages of several threads do not
// mix, and the order of the lines is the order in which the calls got through.
class Logfile {
 public:
  // Receives a message exactly as it was logged, without time stamp. Calls are serialised. It may
  // itself log (which calls it again, within the first call) or change the sink.
  using Function = std::function<void(const std::string& message, int level)>;

  Logfile() = default;
  ~Logfile();
  Logfile(const Logfile&) = delete;
  Logfile& operator=(const Logfile&) = delete;

  // Writes `message` to the sink if `level` is at most the highest level that is kept. Any text is
  // accepted. Standard error and files get one line,
  //   2026-01-31T23:59:59.123Z 3 Loaded PKCS#11 module '/usr/lib/token.so'
  // with the time in UTC, the level and the message, in which control characters (a line break
  // among them; 00 to 1F and 7F, octets above that pass) stand as \xHH so that a message can never
  // look like two. A line that cannot be written is lost without a sign: a full disk must not stop
  // a signature. Of one that was cut short the next line is separated all the same. What the sink
  // function throws comes out of Log.
  void Log(std::string message, int level);

  // Keeps messages of `level` and below; a negative level keeps none of the component's.
  void SetMaxLevel(int level);

  void LogToNothing();
  void LogToStandardError();
  // Appends to the file, which is created for its owner only (mode 0600) where it does not exist.
  // On false the file could not be opened (errno says why) and the sink is as it was.
  bool LogToFile(const std::string& path);
  // An empty function is the same as LogToNothing().
  void LogToFunction(Function function);

 private:
  void WriteLine(const std::string& line);
  void SetSink(int descriptor, bool is_ours, std::shared_ptr<const Function> function);

  std::recursive_mutex mutex_;  // Recursive, for sink functions that log.
  int max_level_ = 5;
  int descriptor_ = -1;                       // Of standard error or of a file, or none.
  bool is_ours_ = false;                      // The file's, to be closed.
  bool cut_short_ = false;                    // The last line has no end.
  std::shared_ptr<const Function> function_;  // Shared with a call that is under way.
};

// The one log of the program. The program says where it goes.
extern Logfile logfile;
