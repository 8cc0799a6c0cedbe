// One connection of the wire server: reads requests, plays scripts. And what the connections share.

#ifndef LUM_TESTING_WIRE_WIRESESSION_H
#define LUM_TESTING_WIRE_WIRESESSION_H

#include <openssl/evp.h>
#include <openssl/ssl.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "FileDescriptor.h"
#include "wire/WireServer.h"

namespace lumtest {

// What happens once and is then so for good. A descriptor rather than a condition variable, so that
// a connection can wait for it, for its client and for the server's end in one poll.
class WireEvent {
 public:
  WireEvent();
  void Set() const;
  bool Wait(std::chrono::milliseconds deadline) const;
  int Descriptor() const { return m_descriptor.Get(); }

 private:
  const FileDescriptor m_descriptor;
};

struct WireGate::State {
  WireEvent opened;
  WireEvent reached;
};

struct WireServerState {
  explicit WireServerState(WireOptions wanted);

  void Accept();
  void JoinFinished();

  // For sessions.
  std::optional<WireReply> TakeScript(bool ofConnection);
  WireStart HandlerStart() const;
  WireReply Handle(const WireRequest& request) const;
  std::size_t NewRequest();
  void Publish(std::size_t number, const WireRequest& request);
  void Finish(std::size_t number, const WireConnection& connection);

  // Fixed while the server runs.
  WireOptions options;
  std::uint16_t port = 0;
  FileDescriptor listener;
  WireEvent stop;
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
  std::size_t requestsEnded = 0;
  std::size_t connectionsBegun = 0;
  std::size_t connectionsOpen = 0;
  std::map<std::size_t, std::thread> workers;
  std::vector<std::size_t> finished;  // workers whose thread is at its end
};

// Lives on one thread. The socket, which must not block, belongs to it.
class WireSession {
 public:
  static constexpr std::uint64_t kNoLimit = UINT64_MAX;
  static constexpr std::chrono::milliseconds kForEver{-1};

  WireSession(WireServerState& server, int socket, std::size_t number, WireConnection connection);
  WireSession(const WireSession&) = delete;
  WireSession& operator=(const WireSession&) = delete;

  // Serves the connection to its end.
  void Run();

  // --- For the steps of scripts. All throw, for Run, when the connection is at its end.

  void Write(const std::string& bytes);
  void WriteBeneathTls(const std::string& bytes);

  // Does nothing until the time is up or `released` can be read.
  void Hold(std::chrono::milliseconds time, int released = -1);
  void WaitAt(const WireGate& gate);

  // Reads `count` more bytes of the request, less when that is whole before.
  void ReadMore(std::uint64_t count);

  [[noreturn]] void PassOn(std::uint16_t port, std::uint64_t clientBytes,
                           std::uint64_t serverBytes);

  void HalfClose();
  [[noreturn]] void Close();
  [[noreturn]] void Reset();
  [[noreturn]] void Alert();
  [[noreturn]] void Leave(WireEnd end);

 private:
  // Input and output.
  void Await(short events);
  void AwaitMore(ssize_t result, short events);
  void Handshake();
  std::size_t Read(char* bytes, std::size_t size);

  // Requests.
  void Serve();
  void BeginRequest();
  // Reads on until the request is whole, or `limit` of its bytes are there, or (`headOnly`) its
  // head is.
  void Advance(std::uint64_t limit, bool headOnly = false);
  void Parse();
  bool TakeHead();
  void TakeChunks();
  void TakeBody(std::size_t begin, std::size_t size, std::size_t end);
  std::uint64_t NumberIn(const std::string& text, int base);
  void EndRequest(WireState state);
  void Play(const WireReply& reply);

  WireServerState& m_server;
  const int m_socket;
  const std::size_t m_number;
  WireConnection m_connection;
  std::unique_ptr<SSL, decltype(&SSL_free)> m_tls{nullptr, &SSL_free};

  std::string m_in;          // read, but not yet part of a request
  bool m_inRequest = false;  // one has begun
  std::size_t m_requestNumber = 0;
  WireRequest m_request;
  bool m_chunked = false;
  std::uint64_t m_taken = 0;  // bytes of the request that have left m_in
  std::uint64_t m_left = 0;   // bytes to come of a body that is not chunked
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> m_digest{EVP_MD_CTX_new(),
                                                                   &EVP_MD_CTX_free};
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIRESESSION_H
