// What the back end does with a request, without any socket.
#ifndef LUM_BACKEND_BACKEND_H
#define LUM_BACKEND_BACKEND_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "Message.h"
#include "Objects.h"
#include "Options.h"
#include "RootDir.h"
#include "Store.h"
#include "Tokens.h"

// One request from its first byte to the last one of its answer.
struct Exchange {
  Call call;
  Reply reply;
  int status = 0;              // 0: there was no answer
  std::uint64_t bytesIn = 0;   // of the request's body
  std::uint64_t bytesOut = 0;  // of the whole answer
  std::chrono::system_clock::time_point time = std::chrono::system_clock::now();
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

// Routes, and the state behind them. Safe for several threads at once.
class Backend {
 public:
  // `signKey` is the content of options.signKeyFile. Throws std::runtime_error when a file or
  // directory below options.root cannot be used, or another back end uses it.
  Backend(const Options& options, const std::string& signKey);

  // The answer to one request. May throw; the request was then not carried out in full.
  Task<Reply> Handle(const Call& call, BodySource& body);

  // To be called when a request is over: keeps it for the page, then writes one line to the access
  // log on standard error.
  Task<void> Finished(Exchange exchange);

  // Returns when everything that is to be kept is written.
  void Drain() { m_store.Drain(); }

  // Writes one line to standard error.
  static void Complain(const std::string& text);

  // True for the page at / and what it asks for, which take no part in misbehaviour.
  static bool IsMonitor(const Call& call);

  const Options& Settings() const { return m_options; }

 private:
  using Handler = std::function<Task<Reply>(const Call&, BodySource&)>;

  std::optional<Reply> RefuseForeign(const Call& call) const;
  bool FailsOnPurpose();
  Task<Reply> Dispatch(const Call& call, BodySource& body);

  const Options m_options;
  const RootDir m_root;
  const FileDescriptor m_lock;  // of the root directory
  const RootDir m_files;
  const RootDir m_configs;
  Store m_store;
  Tokens m_tokens;
  const Objects m_objects;
  std::mutex m_faultsMutex;
  std::mt19937_64 m_faults;                   // guarded by m_faultsMutex
  std::map<std::string, Handler> m_handlers;  // by method and path of the table in Paths.h
};

#endif  // LUM_BACKEND_BACKEND_H
