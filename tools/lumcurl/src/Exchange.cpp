// One call of the library with everything around it.

#include "Exchange.h"

#include <utility>

#include "LumJson.h"
#include "LumLogger.h"
#include "Text.h"

namespace {

constexpr std::size_t kShownReply = 1000;  // bytes of a reply that was refused

}  // namespace

Exchange::Exchange(Console& console, Request request)
    : m_console(console),
      m_request(std::move(request)),
      m_reader(m_request.url, m_request.document) {
  m_console.Detail("> " + m_request.method + " " + m_request.url);
  for (const std::string& line : m_request.lines) {
    m_console.Detail("> " + MaskedHeader(line));
  }
  LumLogger& logger = LumLogger::GetInstance();
  logger.SetLevel(m_console.Verbose() || m_request.needsLogAtInfo ? LumLogger::kInfo
                                                                  : LumLogger::kError);
  logger.SetSink([this](const LumLogger::Record& record) {
    const std::string message(record.message, record.messageLength);
    m_reader.Read(record.function, message);
    m_console.Detail(std::string("library: ") + record.function + ": " + message);
  });
}

Exchange::~Exchange() {
  LumLogger::GetInstance().SetSink(nullptr);
}

void Exchange::ShowStatus(std::optional<int> status) {
  m_console.Detail(status && *status > 0 ? "< " + std::to_string(*status)
                                         : "< no status, or one that is not visible");
}

Exit Exchange::Succeed() {
  WarnOfInterface();
  if (Told().curlResult != 0) {
    m_console.Warn(m_request.command + " " + m_request.url +
                   ": the connection broke after the answer had arrived: " + Told().curlText);
  }
  return Exit::kDone;
}

Exit Exchange::Fail(std::optional<int> status, const Verdict& otherwise, const std::string& reply) {
  WarnOfInterface();
  // The text of a transfer that failed stands where a reply would.
  const bool hasReply = Told().curlResult == 0;
  return Report(Judge(status, otherwise), !hasReply ? "" : reply.empty() ? Told().reply : reply);
}

Exit Exchange::Report(const Verdict& verdict, const std::string& reply) {
  m_console.Error(m_request.command + " " + m_request.url + ": " + verdict.reason +
                  (verdict.advice.empty() ? "" : "; " + verdict.advice));
  if (!reply.empty()) {
    ShowReply(reply);
  }
  return verdict.exit;
}

void Exchange::WarnOfInterface() {
  if (Told().noInterface) {
    m_console.Warn("no interface has the address given with --mac: the system chose one");
  }
}

void Exchange::ShowReply(const std::string& reply) {
  LumJson::Value document;
  const bool isShortJson = reply.size() <= kShownReply && document.Parse(reply);
  m_console.Error("the reply: " +
                  (isShortJson ? document.JsonValueToString() : reply.substr(0, kShownReply)));
}

Verdict Exchange::Judge(std::optional<int> status, const Verdict& otherwise) const {
  const Facts& told = Told();
  if (told.curlResult != 0) {
    return JudgeTransfer(told.curlResult, told.curlText, m_request.timeLimit);
  }
  if (!status) {
    status = told.status;
  }
  if (told.notJson) {
    return {Exit::kOther, "the answer is not JSON", "check the URL: another service may answer"};
  }
  if (status && *status > 0) {
    return JudgeStatus(*status);
  }
  return otherwise;
}
