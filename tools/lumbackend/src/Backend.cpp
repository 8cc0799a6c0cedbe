// Routing, misbehaviour on purpose, the access log, and what is kept of an exchange.
#include "Backend.h"

#include <LumSafeText.h>

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/beast/core/string.hpp>
#include <cctype>
#include <ctime>
#include <stdexcept>

#include "Body.h"
#include "Paths.h"
#include "Routes.h"
#include "Signature.h"
#include "Text.h"

namespace {

constexpr std::uint64_t kJsonLimit = 64 << 20;  // bytes
constexpr std::size_t kKeptOfAnswer = 2048;     // bytes
constexpr std::size_t kLongestName = 200;       // bytes of a device's or a topic's name

// For the access log: never empty, and without anything that could look like another column.
std::string Column(const std::string& text) {
  return text.empty() ? "-" : boost::algorithm::replace_all_copy(LumSafeText(text), " ", "\\x20");
}

// Locks the directory for as long as the descriptor is open, which a killed process leaves to
// nobody.
FileDescriptor Lock(const RootDir& root) {
  FileDescriptor lock(::openat(root.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock || ::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
    throw std::runtime_error("'" + root.Path() + "' is in use by another lumbackend");
  }
  return lock;
}

// "host" out of "host:port" or "[address]:port".
std::string HostOf(const std::string& authority) {
  if (!authority.empty() && authority[0] == '[') {
    return authority.substr(1, authority.find(']') - 1);
  }
  return authority.substr(0, authority.find(':'));
}

// True for a request of this method and with these segments, which the path of a table stands for.
bool Fits(const std::string& path, const std::vector<std::string>& names) {
  std::vector<std::string> parts = Split(path.substr(1), '/');
  if (names.size() > 1 && (path.ends_with("...") || parts[0] == "configs")) {
    parts.resize(names.size(), "NAME");
  }
  return std::equal(parts.begin(), parts.end(), names.begin(), names.end(),
                    [](const std::string& part, const std::string& name) {
                      return part == name || std::isupper(static_cast<unsigned char>(part[0])) != 0;
                    });
}

// Values that look like secrets give way to stars.
std::string Masked(const std::string& query) {
  static constexpr std::array<const char*, 4> kSecrets = {"token", "secret", "passw", "signature"};
  std::vector<std::string> pairs = Split(query, '&');
  for (std::string& pair : pairs) {
    const std::string key = pair.substr(0, pair.find('='));
    const bool secret = std::any_of(kSecrets.begin(), kSecrets.end(), [&](const char* word) {
      return boost::algorithm::icontains(key, word);
    });
    if (secret && key.size() < pair.size()) {
      pair = key + "=***";
    }
  }
  return boost::algorithm::join(pairs, "&");
}

// A text may hold no zero byte, which would end it for others who read the database.
Cell BodyCell(const std::string& bytes) {
  const bool isText = bytes.find('\0') == std::string::npos && IsUtf8(bytes);
  return isText ? Cell(bytes) : Blob{bytes};
}

// The row of an exchange.
std::vector<Cell> Columns(const Exchange& exchange) {
  const Call& call = exchange.call;
  const Reply& reply = exchange.reply;
  const Note& note = reply.note;
  const bool refused = exchange.status == 0 || exchange.status >= 400;
  const std::string* accessId = call.Header("X-ORV-ACCESS-ID");
  const std::string* authorization = call.Header("Authorization");
  const auto number = [](auto value) { return static_cast<std::int64_t>(value); };
  const auto name = [](const std::string& text) {
    return LumSafeText(text.substr(0, kLongestName));
  };
  using std::chrono::duration_cast;
  const auto time = exchange.time.time_since_epoch();
  const auto duration = std::chrono::steady_clock::now() - exchange.begin;
  // Neither what a token was asked for with nor the token itself is kept.
  const bool secret = !call.names.empty() && call.names[0] == "token";
  const bool json = reply.contentType == "application/json";
  return {
      number(duration_cast<std::chrono::milliseconds>(time).count()),
      number(duration_cast<std::chrono::microseconds>(duration).count()),
      refused ? "refusal" : note.kind,
      LumSafeText(call.method),
      LumSafeText(call.path),
      LumSafeText(Masked(call.query)),
      number(exchange.status),
      number(exchange.bytesIn),
      number(exchange.bytesOut),
      name(note.device.empty() && accessId != nullptr ? *accessId : note.device),
      name(note.topic),
      LumSafeText(note.object),
      number(call.IsPacked()),
      number(authorization != nullptr && authorization->starts_with("LUM ")),
      number(call.tls),
      refused ? "" : LumSafeText(note.text),
      refused ? LumSafeText(note.text) : "",
      call.client,
      call.authority,
      ShownHead(call.headers).JsonValueToString(),
      ShownHead(reply.headers).JsonValueToString(),
      json && !secret ? LumSafeText(reply.body.substr(0, kKeptOfAnswer), "\n\t") : "",
      number(note.report),
      note.report > 0 || secret ? Cell("") : BodyCell(note.body),
      number(secret            ? 0
             : note.report > 0 ? note.size
                               : note.body.size()),
      number(!secret && (note.report > 0 || note.body.size() == note.size)),
  };
}

}  // namespace

Backend::Backend(const Options& options, const std::string& signKey)
    : m_options(options),
      m_root(options.root),
      m_lock(Lock(m_root)),
      m_files(options.root + "/files"),
      m_configs(options.root + "/configs"),
      m_store(options.root, options.keep),
      m_tokens(std::chrono::seconds(options.tokenLifetime)),
      m_objects(m_root, signKey, options.maxBody),
      m_faults(options.seed) {
  // A handler that waits for nothing.
  const auto plain = [](auto handler) -> Handler {
    return [handler](const Call& call, BodySource& /*body*/) -> Task<Reply> {
      co_return handler(call);
    };
  };
  const std::uint64_t limit = options.maxBody.value_or(kJsonLimit);
  const Handler echo = [limit](const Call& call, BodySource& body) {
    return Echo(call, body, limit);
  };
  // A handler for those who have a token.
  const auto withToken = [this](const Handler& handler) -> Handler {
    return [this, handler](const Call& call, BodySource& body) -> Task<Reply> {
      if (!m_options.open) {
        if (auto refusal = m_tokens.Refuse(call)) {
          co_return std::move(*refusal);
        }
      }
      co_return co_await handler(call, body);
    };
  };
  const Handler newToken = [this, limit](const Call& call, BodySource& body) {
    return m_tokens.New(call, body, limit);
  };
  m_handlers = {
      {"GET /echo", echo},
      {"POST /echo", echo},
      {"PUT /echo", echo},
      {"GET /files/NAME...", plain([this](const Call& call) { return SendFile(m_files, call); })},
      {"POST /token", newToken},
      {"PUT /token", withToken(newToken)},
      {"POST /report", withToken([this, limit](const Call& call, BodySource& body) {
         return AddReport(m_store, call, body, limit);
       })},
      {"GET /reports", plain([this](const Call&) { return AllReports(m_store); })},
      {"GET /log-address", withToken(plain(LogAddress))},
      {"PUT /objects/NAME...",
       [this](const Call& call, BodySource& body) { return m_objects.Put(call, body); }},
      {"GET /objects/NAME...", plain([this](const Call& call) { return m_objects.Get(call); })},
      {"GET /configs/APPID/CLUSTER/NAMESPACE",
       plain([this](const Call& call) { return GetNamespace(m_configs, call); })},
  };
  for (const auto& [path, answer] : MonitorAnswers(m_store)) {
    m_handlers.emplace("GET " + path, plain(answer));
  }
}

Task<Reply> Backend::Handle(const Call& call, BodySource& body) {
  if (auto refusal = RefuseForeign(call)) {
    co_return* refusal;
  }
  if (!IsMonitor(call)) {
    if (m_options.status) {
      co_await Discard(body);
      co_return Problem(*m_options.status, "every answer has this status (--status)");
    }
    if (FailsOnPurpose()) {
      co_await Discard(body);
      co_return Problem(503, "failed on purpose (--fail-rate)");
    }
  }
  co_return co_await Dispatch(call, body);
}

// Which requests fail depends on rate and seed alone, one step a request. 53 bits fill a double
// from 0 up to, but without, 1. The distributions of <random> may differ from one standard library
// to the next, the engine may not.
bool Backend::FailsOnPurpose() {
  const std::lock_guard<std::mutex> lock(m_faultsMutex);
  return static_cast<double>(m_faults() >> 11) * 0x1p-53 < m_options.failRate;
}

// Names that strangers can make point to this machine, and pages of theirs, get nothing: a browser
// would ask on their behalf.
std::optional<Reply> Backend::RefuseForeign(const Call& call) const {
  const std::string* host = call.Header("Host");
  const std::string* origin = call.Header("Origin");
  std::vector<std::string> names;
  if (host != nullptr && !host->empty()) {
    names.push_back(HostOf(*host));
  }
  if (origin != nullptr) {
    const std::size_t scheme = origin->find("://");
    names.push_back(scheme == std::string::npos ? *origin : HostOf(origin->substr(scheme + 3)));
  }
  for (const std::string& name : names) {
    boost::system::error_code failure;
    boost::asio::ip::make_address(name, failure);
    if (failure && !boost::beast::iequals(name, "localhost") &&
        std::none_of(m_options.hosts.begin(), m_options.hosts.end(), [&](const std::string& known) {
          return boost::beast::iequals(known, name);
        })) {
      std::string problem = "'" + name;
      problem.append("' is a foreign host; --host ").append(name).append(" allows it");
      return Problem(403, problem);
    }
  }
  return std::nullopt;
}

Task<Reply> Backend::Dispatch(const Call& call, BodySource& body) {
  const std::string method = call.method == "HEAD" ? "GET" : call.method;
  std::string allowed;
  for (const Path& path : kPaths) {
    if (!Fits(path.path, call.names)) {
      continue;
    }
    if (method == path.method) {
      co_return co_await m_handlers.at(method + " " + path.path)(call, body);
    }
    allowed += (allowed.empty() ? "" : ", ") + std::string(path.method);
  }
  if (allowed.empty()) {
    co_return Problem(404, "there is nothing at this path");
  }
  Reply reply = Problem(405, "this path takes " + allowed);
  reply.headers.push_back({"Allow", allowed});
  co_return reply;
}

bool Backend::IsMonitor(const Call& call) {
  static const std::array<const char*, 7> kNames = {"",       "events", "exchanges", "totals",
                                                    "stream", "chart",  "paths"};
  return !call.names.empty() && (!call.names[0].empty() || call.names.size() == 1) &&
         std::find(kNames.begin(), kNames.end(), call.names[0]) != kNames.end();
}

Task<void> Backend::Finished(Exchange exchange) {
  const Call& call = exchange.call;
  const Note& note = exchange.reply.note;
  const int status = exchange.status;
  const bool refused = status == 0 || status >= 400;
  std::string problem;
  // What the page asks for would only show the page itself, and is not worth a line either.
  const bool quiet = IsMonitor(call) && !refused;
  if (!quiet) {
    const Store::Written written = co_await m_store.AddExchange(Columns(exchange));
    problem = written.problem;
  }
  if (!quiet || call.path == "/") {
    Complain(UtcTime(std::time(nullptr), "%Y-%m-%dT%H:%M:%SZ") + " " + Column(call.method) + " " +
             Column(call.path) + " " + (status == 0 ? "-" : std::to_string(status)) + " in=" +
             std::to_string(exchange.bytesIn) + " out=" + std::to_string(exchange.bytesOut) +
             (refused && !note.text.empty() ? " (" + LumSafeText(note.text) + ")" : "") +
             (problem.empty() ? "" : " [not kept: " + LumSafeText(problem) + "]"));
  }
}

void Backend::Complain(const std::string& text) {
  const std::string line = text + "\n";
  // One write for each line: lines of several threads do not mix. Nobody could be told of a
  // failure.
  static_cast<void>(WriteAll(STDERR_FILENO, line.data(), line.size()));
}
