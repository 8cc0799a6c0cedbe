// Catches what the code under test logs.

#ifndef LUM_TESTING_LOG_LOGCAPTURE_H
#define LUM_TESTING_LOG_LOGCAPTURE_H

#include <LumLogger.h>

#include <cstddef>
#include <memory>
#include <ostream>
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

// For failure messages: "file:line function [tag] [detail] level message".
std::ostream& operator<<(std::ostream& out, const LogRecord& record);

// From construction to destruction the process's logger hands its records to this object and
// nothing reaches standard error; afterwards it writes to standard error again. One capture at a
// time: a second one takes the records over, and the end of either ends both.
//
// Records may come in from any thread, and every member may be called from any thread.
class LogCapture {
 public:
  // Catches records up to `level`. The logger has no way to ask for its level, so that it is
  // LumLogger::kInfo, the one it starts with, once the capture has ended.
  explicit LogCapture(int level = LumLogger::kInfo);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Everything caught so far, in order.
  std::vector<LogRecord> Records() const;

  // The records of one level.
  std::vector<LogRecord> Records(int level) const;

  // The messages alone, of all levels or of one.
  std::vector<std::string> Messages() const;
  std::vector<std::string> Messages(int level) const;

  std::size_t Count() const;
  std::size_t Count(int level) const;

  // Whether a record of `level` says exactly `message`, or has `part` somewhere in its message.
  bool Has(int level, const std::string& message) const;
  bool HasPart(int level, const std::string& part) const;

  // The last record; one with empty fields when there is none.
  LogRecord Last() const;

  // Forgets what has been caught.
  void Clear();

  // All records, one a line, for failure messages.
  std::string Text() const;

 private:
  struct State;
  std::shared_ptr<State> m_state;
};

}  // namespace lumtest

#endif  // LUM_TESTING_LOG_LOGCAPTURE_H
