#include "Exchange.h"

#include <algorithm>
#include <utility>

#include "Input.h"
#include "LumJson.h"
#include "LumLogger.h"
#include "Text.h"
#include "Url.h"

namespace {

constexpr std::size_t kShownReply = 1000;  // bytes of a reply that was refused

// `name` in small letters.
bool HasHeader(const std::vector<std::string>& lines, const std::string& name) {
  return std::any_of(lines.begin(), lines.end(), [&name](const std::string& line) {
    return LowerCase(line.substr(0, line.find(':'))) == name;
  });
}

}  // namespace

Exchange::Exchange(const Options& options, Console& console, Request request)
    : m_options(options),
      m_console(console),
      m_request(std::move(request)),
      m_reader(m_request.url, m_request.document) {
  WarnOfUrl();
  m_console.Detail("> " + m_request.method + " " + m_request.url);
  for (const std::string& line : m_request.lines) {
    m_console.Detail("> " + MaskedHeader(line));
  }
  // The one that libcurl adds for sure; others, such as Host, depend on version and protocol.
  if (m_request.method == "POST" && !HasHeader(m_request.lines, "content-type")) {
    m_console.Detail("> Content-Type: application/x-www-form-urlencoded (added by libcurl)");
  }
  LumLogger& logger = LumLogger::GetInstance();
  // That no interface has the address of --mac is told at level info alone.
  logger.SetLevel(options.verbose || !options.mac.empty() ? LumLogger::kInfo : LumLogger::kWarning);
  logger.SetSink([this](const LumLogger::Record& record) {
    const std::string message(record.message, record.messageLength);
    m_reader.Read(message);
    if (record.level == LumLogger::kWarning && TellsOfPacking(record.function)) {
      m_console.Warn(message);
      return;
    }
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
    m_console.Warn(m_options.command + " " + m_request.url +
                   ": the connection broke after the answer had arrived: " + Told().curlText);
  }
  return Exit::kDone;
}

Exit Exchange::Fail(std::optional<int> status, const Verdict& otherwise, const std::string& reply) {
  WarnOfInterface();
  const Facts& told = Told();
  if (told.curlResult != 0) {  // its text stands where a reply would
    return Report(JudgeTransfer(told.curlResult, told.curlText, m_request.timeLimit));
  }
  const int known = status ? *status : told.status.value_or(0);
  const Verdict notJson = {Exit::kOther, "the answer is not JSON",
                           "check the URL: another service may answer"};
  return Report(told.notJson ? notJson
                : known > 0  ? JudgeStatus(known)
                             : otherwise,
                reply.empty() ? told.reply : reply);
}

Exit Exchange::Report(const Verdict& verdict, const std::string& reply) {
  std::string text = m_options.command + " " + m_request.url + ": " + verdict.reason;
  const auto proxy = verdict.exit == Exit::kNetwork || verdict.exit == Exit::kTimeout
                         ? ProxyFor(m_request.url)
                         : std::nullopt;
  if (proxy) {
    MaskSecrets(proxy->address, m_console);
    text += ", through the proxy " + proxy->address + " that " + proxy->variable +
            " names; check that one, or unset " + proxy->variable;
  } else if (!verdict.advice.empty()) {
    text += "; " + verdict.advice;
  }
  m_console.Error(text);
  if (!reply.empty()) {
    LumJson::Value document;
    const bool isShortJson = reply.size() <= kShownReply && document.Parse(reply);
    m_console.Error("the reply: " +
                    (isShortJson ? document.JsonValueToString() : Shortened(reply, kShownReply)));
  }
  return verdict.exit;
}

void Exchange::WarnOfUrl() {
  if (!SecretsOfUrl(m_request.url).empty()) {
    m_console.Warn(
        "every user of this machine can read the secrets in the URL while it stands on the "
        "command line");
  }
  if (m_request.url.rfind("https://", 0) == 0 && !m_options.ssl) {
    m_console.Warn("the https server is not verified: another one may answer in its place" +
                   (m_request.howToVerify.empty() ? "" : "; " + m_request.howToVerify));
  }
}

void Exchange::WarnOfInterface() {
  if (Told().noInterface) {
    m_console.Warn("no interface has the address given with --mac: the system chose one");
  }
}

ServiceCall::ServiceCall(const Options& options, Console& console, Request request)
    : exchange(options, console, std::move(request)) {
  if (!options.cert.empty()) {
    SetCertificate(client, options, console);
  }
  if (!options.interfaceName.empty()) {
    client.SetBindInterface(options.interfaceName);
  }
  if (!options.mac.empty()) {
    client.SetBindMac(options.mac);
  }
  if (!options.pinIp.empty()) {
    client.SetDomainIp(options.pinIp);
  }
  if (options.limitRate > 0) {
    client.SetLimitSpeed(options.limitRate);
  }
}
