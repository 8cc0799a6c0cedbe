// The framework's logger: one process-wide instance that writes level-filtered lines to standard
// error, or hands them to a sink of the caller's.

#ifndef LUM_LOGGER_H
#define LUM_LOGGER_H

#include <cstddef>
#include <functional>

// Thread safety: every operation may be called from any thread at any time.
class __attribute__((visibility("default"))) LumLogger {
 public:
  // Levels of a record. A smaller number is more severe.
  static constexpr int kSilent = 0;   // for SetLevel only: nothing is written
  static constexpr int kError = 1;    // a failure
  static constexpr int kWarning = 2;  // a tolerated anomaly
  static constexpr int kInfo = 3;     // settings and progress notices; the level at start

  // The fields of one record. Pointers are valid during the sink's call only and are never null: a
  // null text given to Log arrives as "".
  struct Record {
    const char* file;
    int line;
    const char* function;
    const char* tag;
    const char* detail;
    int level;
    const char* message;        // formatted, NUL-terminated, of any length
    std::size_t messageLength;  // bytes of `message` before its terminator
  };

  using Sink = std::function<void(const Record&)>;

  // The process's one logger. It is made on first use and outlives every static object.
  static LumLogger& GetInstance();

  // Records above `level` are dropped before they are formatted. Nothing but this call changes the
  // level: no environment variable and no configuration file is read.
  void SetLevel(int level);

  // Hands each record that passes the level to `sink` instead of standard error; an empty `sink`
  // restores standard error. Once SetSink has returned, the sink it replaced is not called again.
  // A sink is called by one thread at a time and must not call SetSink; what it throws is dropped.
  void SetSink(Sink sink);

  // Writes one record: the line "file:line function level message" on standard error, or the same
  // fields to the sink. `format` and what follows are those of printf(3); a null argument of "%s" is
  // written as "(null)". The message is never cut. If memory runs out the record is dropped.
  void Log(const char* file, int line, const char* function, const char* tag, const char* detail,
           int level, const char* format, ...) __attribute__((format(printf, 8, 9)));

  LumLogger(const LumLogger&) = delete;
  LumLogger& operator=(const LumLogger&) = delete;

 private:
  LumLogger();
  ~LumLogger();
  struct State;
  State* m_state;
};

#endif  // LUM_LOGGER_H
