// What the server and its connections share.

#ifndef LUM_TESTING_WIRE_WIRESERVERSTATE_H
#define LUM_TESTING_WIRE_WIRESERVERSTATE_H

#include <openssl/ssl.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "wire/WireServer.h"

namespace lumtest {

struct WireServerState {
  explicit WireServerState(WireOptions wanted);
  ~WireServerState();
  WireServerState(const WireServerState&) = delete;
  WireServerState& operator=(const WireServerState&) = delete;

  void Accept();
  void JoinFinished();

  // For sessions.
  std::optional<WireReply> TakeConnectionScript();
  std::optional<WireReply> TakeRequestScript();
  WireStart HandlerStart() const;
  WireReply Handle(const WireRequest& request) const;
  std::size_t NewRequest();
  void Publish(const WireRequest& request);
  void Publish(const WireConnection& connection);
  void Finished(std::size_t connection);

  // Fixed while the server runs.
  WireOptions options;
  std::uint16_t port = 0;
  int listener = -1;
  int stop = -1;  // an eventfd; readable for good once the server stops
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> tls{nullptr, &SSL_CTX_free};
  std::thread acceptor;

  // Guarded by `mutex`; `changed` follows each change of the records.
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::deque<WireReply> scripts;
  std::function<WireReply(const WireRequest&)> handler;
  WireStart handlerStart = WireStart::kBody;
  std::map<std::size_t, WireRequest> requests;
  std::map<std::size_t, WireConnection> connections;
  std::size_t requestsBegun = 0;
  std::size_t headsSeen = 0;
  std::size_t requestsEnded = 0;
  std::size_t connectionsBegun = 0;
  std::size_t connectionsOpen = 0;
  std::map<std::size_t, std::thread> workers;
  std::vector<std::size_t> finished;  // workers whose thread is at its end
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIRESERVERSTATE_H
