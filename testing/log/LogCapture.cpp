// Copies the logger's records.

#include "log/LogCapture.h"

#include <mutex>
#include <sstream>
#include <utility>

namespace lumtest {

struct LogCapture::State {
  std::mutex mutex;
  std::vector<LogRecord> records;
};

LogCapture::LogCapture() : m_state(std::make_shared<State>()) {
  LumLogger::GetInstance().SetSink([state = m_state](const LumLogger::Record& record) {
    LogRecord copy{record.file,
                   record.line,
                   record.function,
                   record.tag,
                   record.detail,
                   record.level,
                   std::string(record.message, record.messageLength)};
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->records.push_back(std::move(copy));
  });
}

LogCapture::~LogCapture() {
  LumLogger::GetInstance().SetSink(nullptr);
}

std::vector<std::string> LogCapture::Messages(int level) const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  std::vector<std::string> messages;
  for (const LogRecord& record : m_state->records) {
    if (level == kAnyLevel || level == record.level) {
      messages.push_back(record.message);
    }
  }
  return messages;
}

LogRecord LogCapture::Last() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->records.empty() ? LogRecord() : m_state->records.back();
}

void LogCapture::Clear() {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  m_state->records.clear();
}

std::string LogCapture::Text() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  std::ostringstream text;
  for (const LogRecord& record : m_state->records) {
    text << record.file << ':' << record.line << ' ' << record.function << ' ' << record.level
         << ' ' << record.message << '\n';
  }
  return text.str();
}

}  // namespace lumtest
