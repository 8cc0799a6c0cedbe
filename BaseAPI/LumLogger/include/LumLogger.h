// The framework's logger: one process-wide instance that writes level-filtered lines to standard
// error, or hands them to a sink of the caller's.

#ifndef LUM_LOGGER_H
#define LUM_LOGGER_H

#include <cstddef>
#include <functional>

// Thread safety: every operation may be called from any thread at any time, also from a static
// object's destructor and from the child of fork(2); fork(2) waits for the record being written.
class __attribute__((visibility("default"))) LumLogger {
 public:
  // Levels of a record. A smaller number is more severe.
  static constexpr int kSilent = 0;   // for SetLevel only: nothing is written
  static constexpr int kError = 1;    // a failure
  static constexpr int kWarning = 2;  // a tolerated anomaly
  static constexpr int kInfo = 3;     // settings and progress notices; the level at start

  // The fields of one record, as they were logged. Pointers are valid during the sink's call only
  // and are never null: a null text given to Log arrives as "".
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

  // The process's one logger. It is made on first use and outlives every static object. Throws
  // std::bad_alloc when memory runs out at that first use.
  static LumLogger& GetInstance();

  // Records above `level` are dropped before they are formatted. Nothing but this call changes the
  // level: no environment variable and no configuration file is read.
  void SetLevel(int level);

  // Hands each record that passes the level to `sink` instead of standard error; an empty `sink`
  // restores standard error. Once SetSink has returned, the sink it replaced is not called again.
  // A sink is called by one thread at a time; what it throws is dropped. What a sink logs itself
  // goes to standard error. It must not wait for another thread that logs, and must not call
  // SetSink: that call has no effect.
  void SetSink(Sink sink);

  // Writes one record: the line "file:line function level message" on standard error, or the same
  // fields to the sink. The names of the levels are "error", "warning" and "info"; a level below
  // kError counts as kError, one above kInfo is called "debug". `format` and what follows are those
  // of printf(3); a null argument of "%s" is written as "(null)". The message is never cut.
  //
  // On standard error a record is one line of what LumSafeText.h calls fit, and tabs: every other
  // byte, a line feed for one, is written as \xHH. A sink gets the bytes as they are.
  //
  // Nothing is reported to the caller and errno is left alone: if memory runs out, or standard
  // error is closed or its reader has gone, the record is dropped. A call returns when the line has
  // been handed to the system, so nothing is lost at exit.
  void Log(const char* file, int line, const char* function, const char* tag, const char* detail,
           int level, const char* format, ...) __attribute__((format(printf, 8, 9)));

  LumLogger(const LumLogger&) = delete;
  LumLogger& operator=(const LumLogger&) = delete;

 private:
  LumLogger();
  ~LumLogger();
  struct __attribute__((visibility("hidden"))) State;
  State* m_state;
};

#endif  // LUM_LOGGER_H
