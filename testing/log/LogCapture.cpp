// A sink of the logger that keeps copies of the records.

#include "log/LogCapture.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <sstream>

namespace lumtest {

struct LogCapture::State {
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<LogRecord> records;
};

std::ostream& operator<<(std::ostream& out, const LogRecord& record) {
  return out << record.file << ':' << record.line << ' ' << record.function << " [" << record.tag
             << "] [" << record.detail << "] " << record.level << ' ' << record.message;
}

LogCapture::LogCapture(int level) : m_state(std::make_shared<State>()) {
  LumLogger& logger = LumLogger::GetInstance();
  logger.SetSink([state = m_state](const LumLogger::Record& record) {
    LogRecord copy{record.file,
                   record.line,
                   record.function,
                   record.tag,
                   record.detail,
                   record.level,
                   std::string(record.message, record.messageLength)};
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->records.push_back(std::move(copy));
    state->changed.notify_all();
  });
  logger.SetLevel(level);
}

LogCapture::~LogCapture() {
  LumLogger& logger = LumLogger::GetInstance();
  logger.SetSink(nullptr);
  logger.SetLevel(LumLogger::kInfo);
}

std::vector<LogRecord> LogCapture::Records() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->records;
}

std::vector<LogRecord> LogCapture::Records(int level) const {
  return Select([level](const LogRecord& record) { return record.level == level; });
}

std::vector<LogRecord> LogCapture::Select(
    const std::function<bool(const LogRecord&)>& wanted) const {
  std::vector<LogRecord> selected;
  for (LogRecord& record : Records()) {
    if (wanted(record)) {
      selected.push_back(std::move(record));
    }
  }
  return selected;
}

std::vector<std::string> LogCapture::Messages() const {
  std::vector<std::string> messages;
  for (LogRecord& record : Records()) {
    messages.push_back(std::move(record.message));
  }
  return messages;
}

std::vector<std::string> LogCapture::Messages(int level) const {
  std::vector<std::string> messages;
  for (LogRecord& record : Records(level)) {
    messages.push_back(std::move(record.message));
  }
  return messages;
}

std::size_t LogCapture::Count() const {
  return Records().size();
}

std::size_t LogCapture::Count(int level) const {
  return Records(level).size();
}

bool LogCapture::Has(int level, const std::string& message) const {
  const std::vector<std::string> messages = Messages(level);
  return std::find(messages.begin(), messages.end(), message) != messages.end();
}

bool LogCapture::HasPart(int level, const std::string& part) const {
  const std::vector<std::string> messages = Messages(level);
  return std::any_of(messages.begin(), messages.end(), [&part](const std::string& message) {
    return message.find(part) != std::string::npos;
  });
}

LogRecord LogCapture::Last() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->records.empty() ? LogRecord() : m_state->records.back();
}

bool LogCapture::WaitForCount(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline,
                                   [&] { return m_state->records.size() >= count; });
}

void LogCapture::Clear() {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  m_state->records.clear();
}

std::string LogCapture::Text() const {
  std::ostringstream text;
  for (const LogRecord& record : Records()) {
    text << record << '\n';
  }
  return text.str();
}

}  // namespace lumtest
