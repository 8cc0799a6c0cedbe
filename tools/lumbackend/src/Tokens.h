// Access tokens: handing them out, checking them, ending them.
#ifndef LUM_BACKEND_TOKENS_H
#define LUM_BACKEND_TOKENS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "Message.h"

// Every token handed out and still of interest, in memory only. Safe for several threads at once.
class Tokens {
 public:
  using Clock = std::chrono::steady_clock;

  // Tokens live for `lifetime` of the time that `now` tells.
  explicit Tokens(std::chrono::seconds lifetime,
                  std::function<Clock::time_point()> now = Clock::now);

  // A new token of 32 hex digits. Throws std::runtime_error when the system has no random bytes.
  std::string Issue();

  // POST and PUT /token: {"token", "expiresIn"}; after PUT the token in X-Auth-Token has ended.
  Task<Reply> New(const Call& call, BodySource& body, std::uint64_t limit);

  // A refusal unless X-Auth-Token holds a token that is valid.
  std::optional<Reply> Refuse(const Call& call) const;

 private:
  const std::chrono::seconds m_lifetime;
  const std::function<Clock::time_point()> m_now;
  mutable std::mutex m_mutex;
  std::unordered_map<std::string, Clock::time_point> m_expiry;  // guarded by m_mutex
};

#endif  // LUM_BACKEND_TOKENS_H
