// The token table, and the routes over it.
#include "Tokens.h"

#include <algorithm>
#include <utility>

#include "Body.h"
#include "Text.h"

namespace {

constexpr std::size_t kTokenBytes = 16;
constexpr std::size_t kMostTokens = 10'000;  // bounds the table, not a client's needs

}  // namespace

Tokens::Tokens(std::chrono::seconds lifetime, std::function<Clock::time_point()> now)
    : m_lifetime(lifetime), m_now(std::move(now)) {}

std::string Tokens::Issue() {
  std::string token = RandomHex(kTokenBytes);
  const std::lock_guard<std::mutex> lock(m_mutex);
  // Expired tokens are remembered so that their owners are told the reason; when the table is full
  // the one that ends first gives way.
  if (m_expiry.size() >= kMostTokens) {
    m_expiry.erase(
        std::min_element(m_expiry.begin(), m_expiry.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; }));
  }
  m_expiry[token] = m_now() + m_lifetime;
  return token;
}

Task<Reply> Tokens::New(const Call& call, BodySource& body, std::uint64_t limit) {
  Document request = co_await ReadJson(call, body, limit);
  if (request.refusal) {
    co_return* request.refusal;
  }
  if (!request.value.IsObject()) {
    co_return Problem(400, "the request for a token is no JSON object");
  }
  LumJson::Value answer;
  answer["token"] = Issue();
  answer["expiresIn"] = static_cast<std::int64_t>(m_lifetime.count());
  // The old token ends only when there is a new one.
  if (const std::string* token = call.Header("X-Auth-Token");
      token != nullptr && call.method == "PUT") {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_expiry.erase(*token);
  }
  Reply reply = JsonReply(answer);
  reply.note = SubjectOf(request.value);
  reply.note.kind = "token";
  co_return reply;
}

std::optional<Reply> Tokens::Refuse(const Call& call) const {
  const std::string* token = call.Header("X-Auth-Token");
  const char* problem = "no token in X-Auth-Token";
  if (token != nullptr && !token->empty()) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_expiry.find(*token);
    if (found != m_expiry.end() && m_now() < found->second) {
      return std::nullopt;
    }
    problem = found == m_expiry.end() ? "the token is unknown" : "the token has expired";
  }
  Reply reply = Problem(401, problem);
  reply.headers.push_back({"WWW-Authenticate", "X-Auth-Token"});
  return reply;
}
