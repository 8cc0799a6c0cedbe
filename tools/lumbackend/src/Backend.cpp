// Routing, and the handlers that are a few lines each.
#include "Backend.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>
#include <set>

#include "Body.h"
#include "Page.h"
#include "Text.h"

namespace {

constexpr std::uint64_t kJsonLimit = 64 << 20;  // bytes

// Header values that nobody gets to see, neither in an echo nor in a log.
bool IsSecret(const std::string& name) {
  static const std::array<const char*, 5> kSecrets = {
      "Authorization", "Proxy-Authorization", "X-Auth-Token", "x-zun-security-token", "Cookie"};
  return std::any_of(kSecrets.begin(), kSecrets.end(),
                     [&](const char* secret) { return SameName(secret, name); });
}

std::string TokenAnswer(const std::string& token, std::chrono::seconds lifetime) {
  LumJson::Value answer;
  answer["token"] = token;
  answer["expiresIn"] = static_cast<std::int64_t>(lifetime.count());
  return answer.ToStyledString();
}

std::string Now() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm parts = {};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> text = {};
  const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return {text.data(), size};
}

// For the access log: never empty, and without anything that could look like another column.
std::string Column(const std::string& text) {
  std::string column = Printable(text);
  for (std::size_t blank = 0; (blank = column.find(' ', blank)) != std::string::npos;) {
    column.replace(blank, 1, "\\x20");
  }
  return column.empty() ? "-" : column;
}

}  // namespace

// One path with one method.
struct Backend::Route {
  const char* method;
  const char* name;  // first segment of the path
  bool tree;         // paths below the name belong to it, too
  Reply (Backend::*handler)(const Call&, BodySource&);
};

Backend::Backend(const Options& options, const std::string& signKey)
    : m_options(options),
      m_root(options.root),
      m_files(options.root + "/files"),
      m_tokens(std::chrono::seconds(options.tokenLifetime)),
      m_reports(m_root),
      m_objects(m_root, signKey, options.maxBody),
      m_apollo(m_root),
      m_faults(options.failRate, options.seed) {}

Reply Backend::Handle(const Call& call, BodySource& body) {
  if (!IsMonitor(call)) {
    if (m_options.status) {
      Discard(body);
      return Problem(*m_options.status, "every answer has this status (--status)");
    }
    if (m_faults.NextFails()) {
      Discard(body);
      return Problem(503, "failed on purpose (--fail-rate)");
    }
  }
  return Dispatch(call, body);
}

Reply Backend::Dispatch(const Call& call, BodySource& body) {
  static const Route kRoutes[] = {
      {"GET", "", false, &Backend::Page},
      {"GET", "events", false, &Backend::LastEvents},
      {"GET", "echo", false, &Backend::Echo},
      {"POST", "echo", false, &Backend::Echo},
      {"PUT", "echo", false, &Backend::Echo},
      {"GET", "files", true, &Backend::File},
      {"POST", "token", false, &Backend::NewToken},
      {"PUT", "token", false, &Backend::RefreshToken},
      {"POST", "report", false, &Backend::Report},
      {"GET", "log-address", false, &Backend::LogAddress},
      {"PUT", "objects", true, &Backend::PutObject},
      {"GET", "objects", true, &Backend::GetObject},
      {"GET", "configs", true, &Backend::Configuration},
  };
  const std::string method = call.method == "HEAD" ? "GET" : call.method;
  std::string allowed;
  for (const Route& route : kRoutes) {
    if (call.names[0] != route.name ||
        (route.tree ? call.names.size() < 2 : call.names.size() > 1)) {
      continue;
    }
    if (method == route.method) {
      return (this->*route.handler)(call, body);
    }
    allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
  }
  if (allowed.empty()) {
    return Problem(404, "there is nothing at this path");
  }
  Reply reply = Problem(405, "this path takes " + allowed);
  reply.headers.push_back({"Allow", allowed});
  return reply;
}

std::optional<Reply> Backend::RefuseWithoutToken(const Call& call) const {
  if (m_options.open) {
    return std::nullopt;
  }
  const std::string* token = call.Header("X-Auth-Token");
  const char* problem = nullptr;
  if (token == nullptr || token->empty()) {
    problem = "no token in X-Auth-Token";
  } else {
    switch (m_tokens.Check(*token)) {
      case Tokens::State::kValid:
        return std::nullopt;
      case Tokens::State::kExpired:
        problem = "the token has expired";
        break;
      case Tokens::State::kUnknown:
        problem = "the token is unknown";
        break;
    }
  }
  Reply reply = Problem(401, problem);
  reply.headers.push_back({"WWW-Authenticate", "X-Auth-Token"});
  return reply;
}

std::uint64_t Backend::JsonLimit() const {
  return m_options.maxBody.value_or(kJsonLimit);
}

Reply Backend::Page(const Call& /*call*/, BodySource& /*body*/) {
  return PageReply();
}

Reply Backend::LastEvents(const Call& call, BodySource& /*body*/) {
  const std::string text = call.QueryValue("after").value_or("0");
  std::uint64_t after = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), after);
  if (failure != std::errc() || end != text.data() + text.size()) {
    return Problem(400, "'after' in the query is no number");
  }
  Reply reply;
  reply.body = m_events.After(after);
  reply.headers = {{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}};
  return reply;
}

Reply Backend::Echo(const Call& call, BodySource& body) {
  LumJson::Value answer;
  answer["method"] = call.method;
  answer["path"] = Printable(call.path);
  answer["query"] = Printable(call.query);
  LumJson::Value headers = LumJson::Value::Array();
  for (const HeaderField& field : call.headers) {
    LumJson::Value item;
    item["name"] = field.name;
    item["value"] = IsSecret(field.name) && !field.value.empty() ? "***" : Printable(field.value);
    headers.Append(std::move(item));
  }
  answer["headers"] = std::move(headers);
  answer["scheme"] = call.tls ? "https" : "http";
  answer["clientCertificate"] =
      call.clientSubject.empty() ? LumJson::Value() : LumJson::Value(Printable(call.clientSubject));
  if (call.method == "POST" || call.method == "PUT") {
    LumJson::Value document;
    if (auto refusal = ReadJson(call, body, JsonLimit(), document)) {
      return *refusal;
    }
    answer["body"] = std::move(document);
  }
  return JsonReply(answer);
}

Reply Backend::File(const Call& call, BodySource& /*body*/) {
  return SendFile(m_files, call);
}

Reply Backend::NewToken(const Call& call, BodySource& body) {
  LumJson::Value request;
  if (auto refusal = ReadJson(call, body, JsonLimit(), request)) {
    return *refusal;
  }
  if (!request.IsObject()) {
    return Problem(400, "the request for a token is no JSON object");
  }
  Reply reply;
  reply.body = TokenAnswer(m_tokens.Issue(), m_tokens.Lifetime());
  return reply;
}

Reply Backend::RefreshToken(const Call& call, BodySource& body) {
  if (auto refusal = RefuseWithoutToken(call)) {
    return *refusal;
  }
  Reply reply = NewToken(call, body);
  // The old token ends only when there is a new one.
  if (const std::string* token = call.Header("X-Auth-Token");
      token != nullptr && reply.status == 200) {
    m_tokens.Revoke(*token);
  }
  return reply;
}

Reply Backend::Report(const Call& call, BodySource& body) {
  if (auto refusal = RefuseWithoutToken(call)) {
    return *refusal;
  }
  LumJson::Value document;
  if (auto refusal = ReadJson(call, body, JsonLimit(), document)) {
    return *refusal;
  }
  return m_reports.Store(call, document);
}

// Clients put the values into the query as they are, without percent-encoding: a file name may hold
// '&' or '=', and runs to the end of the query.
Reply Backend::LogAddress(const Call& call, BodySource& /*body*/) {
  if (auto refusal = RefuseWithoutToken(call)) {
    return *refusal;
  }
  const std::string accessKey = "access_id=";
  const std::string nameKey = "&file_name=";
  const std::size_t start = call.query.find(accessKey);
  const std::size_t middle = start == std::string::npos ? start : call.query.find(nameKey, start);
  if (middle == std::string::npos) {
    return Problem(400, "the query does not end in access_id=...&file_name=...");
  }
  const std::string accessId =
      call.query.substr(start + accessKey.size(), middle - start - accessKey.size());
  const std::string fileName = call.query.substr(middle + nameKey.size());
  if (accessId.empty()) {
    return Problem(400, "access_id in the query is empty");
  }
  if (!RootDir::IsPlainName(fileName)) {
    return Problem(400, "file_name in the query is no plain file name");
  }
  LumJson::Value answer;
  answer["url"] = (call.tls ? "https://" : "http://") + call.authority + "/objects/logs/" +
                  EncodePercent(fileName);
  answer["accessId"] = accessId;
  answer["fileName"] = fileName;
  return JsonReply(answer);
}

Reply Backend::PutObject(const Call& call, BodySource& body) {
  return m_objects.Put(call, body);
}

Reply Backend::GetObject(const Call& call, BodySource& /*body*/) {
  return m_objects.Get(call);
}

Reply Backend::Configuration(const Call& call, BodySource& /*body*/) {
  return m_apollo.Get(call);
}

bool Backend::IsMonitor(const Call& call) {
  return call.path == "/" || call.path == "/events";
}

void Backend::Finished(const Call& call, int status, const Note& note, std::uint64_t bytesIn,
                       std::uint64_t bytesOut) {
  Record(call, status, note, bytesIn);
  // The page asks for events all the time; that is not worth a line.
  if (call.path != "/events" || status != 200) {
    Complain(Now() + " " + Column(call.method) + " " + Column(call.path) + " " +
             (status == 0 ? "-" : std::to_string(status)) + " in=" + std::to_string(bytesIn) +
             " out=" + std::to_string(bytesOut) +
             (status == 200 || note.text.empty() || note.kind != Note::Kind::kNone
                  ? ""
                  : " (" + Printable(note.text) + ")"));
  }
}

void Backend::Record(const Call& call, int status, const Note& note, std::uint64_t bytesIn) {
  Event event;
  if (status == 0 || status >= 400) {
    event.kind = "refusal";
  } else if (note.kind == Note::Kind::kReport) {
    event.kind = "report";
  } else if (note.kind == Note::Kind::kUpload) {
    event.kind = "upload";
  } else {
    return;
  }
  event.time = std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
                   .count();
  event.method = Printable(call.method);
  event.path = Printable(call.path);
  event.text = Printable(note.text);
  event.status = status;
  event.bytes = bytesIn;
  m_events.Add(std::move(event));
}

void Backend::Complain(const std::string& text) {
  const std::string line = text + "\n";
  // One write for each line: lines of several threads do not mix. Nobody could be told of a
  // failure.
  static_cast<void>(WriteAll(STDERR_FILENO, line.data(), line.size()));
}
