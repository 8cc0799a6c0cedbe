// A sink of the logger that keeps copies of the records.

#include "log/LogCapture.h"

#include <algorithm>
#include <mutex>
#include <sstream>

namespace lumtest {

struct LogCapture::State {
  mutable std::mutex mutex;
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
  std::vector<LogRecord> records = Records();
  const auto other = [level](const LogRecord& record) { return record.level != level; };
  records.erase(std::remove_if(records.begin(), records.end(), other), records.end());
  return records;
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
