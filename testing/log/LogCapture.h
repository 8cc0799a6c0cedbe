// Catches what the code under test logs.

#ifndef LUM_TESTING_LOG_LOGCAPTURE_H
#define LUM_TESTING_LOG_LOGCAPTURE_H

#include <LumLogger.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace lumtest {

// One record, copied out of the logger.
struct LogRecord {
  std::string file;
  int line = 0;
  std::string function;
  std::string tag;
  std::string detail;
  int level = 0;
  std::string message;
};

// From construction to destruction the process's logger hands its records to this object and
// nothing reaches standard error; afterwards it writes to standard error again. One capture at a
// time: a second one takes the records over, and the end of either ends both.
//
// Records may come in from any thread, and every member may be called from any thread.
class LogCapture {
 public:
  static constexpr int kAnyLevel = 0;

  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The messages caught so far, in order.
  std::vector<std::string> Messages(int level = kAnyLevel) const;

  std::size_t Count(int level = kAnyLevel) const { return Messages(level).size(); }

  // The last record; one with empty fields when there is none.
  LogRecord Last() const;

  // Forgets what has been caught.
  void Clear();

  // All records, one a line, for failure messages: "file:line function level message".
  std::string Text() const;

 private:
  struct State;
  std::shared_ptr<State> m_state;
};

}  // namespace lumtest

#endif  // LUM_TESTING_LOG_LOGCAPTURE_H
