// One connection of the wire server: reads requests, plays scripts.

#ifndef LUM_TESTING_WIRE_WIRESESSION_H
#define LUM_TESTING_WIRE_WIRESESSION_H

#include <openssl/ssl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "wire/Digest.h"
#include "wire/WireServerState.h"

namespace lumtest {

// Lives on one thread. The socket, which must not block, belongs to it.
class WireSession {
 public:
  WireSession(WireServerState& server, int socket, WireConnection connection);
  ~WireSession();
  WireSession(const WireSession&) = delete;
  WireSession& operator=(const WireSession&) = delete;

  // Serves the connection to its end.
  void Run();

 private:
  enum class Wake { kSocket, kExtra, kTimeout, kStop };
  enum class Phase { kNone, kHead, kLength, kChunkSize, kChunk, kChunkEnd, kTrailer, kComplete };
  enum class Advanced { kThere, kGone };

  static constexpr std::uint64_t kNoLimit = UINT64_MAX;

  // Input and output. What returns false or 0 has set the connection's end.
  Wake Poll(short events, int extra = -1,
            std::chrono::milliseconds timeout = std::chrono::milliseconds(-1));
  bool PollFor(short events);
  bool AwaitTls(int result);
  bool Handshake();
  std::size_t Read(char* bytes, std::size_t size);
  bool Write(const char* bytes, std::size_t size);
  bool Write(const std::string& bytes) { return Write(bytes.data(), bytes.size()); }
  bool WriteBeneathTls(const char* bytes, std::size_t size);
  void End(WireEnd end);

  // Requests.
  void Serve();
  bool ServeRequest();
  bool BeginRequest();
  // Reads on until the request is whole, or `limit` of its bytes are there, or (`headOnly`) its
  // head is.
  Advanced Advance(std::uint64_t limit, bool headOnly = false);
  void Parse();
  void ParseBody();
  void BeginBody();
  void TakeBody(std::size_t size);
  bool TakeLine(std::string* line);
  void CompleteRequest();
  void AbortRequest(const std::string& error);
  void SendContinueIfDue();

  // Scripts. False: the connection is at its end.
  bool Play(const WireReply& reply);
  bool PlayStep(const WireReply::Step& step);
  bool Repeat(const std::string& bytes, std::uint64_t times);
  bool SendGenerated(std::uint64_t count);
  bool Drip(const std::string& bytes, std::size_t piece, std::chrono::milliseconds pause);
  bool Pause(std::chrono::milliseconds duration);
  bool WaitAt(const WireGate& gate);
  void Stall();
  void HalfClose();
  void Close();
  void Reset();
  void Alert();

  WireServerState& m_server;
  int m_socket;
  WireConnection m_connection;
  std::unique_ptr<SSL, decltype(&SSL_free)> m_tls{nullptr, &SSL_free};

  std::string m_in;  // read, but not yet part of a request
  WireRequest m_request;
  Phase m_phase = Phase::kNone;
  std::uint64_t m_taken = 0;  // bytes of the request that have left m_in
  std::uint64_t m_left = 0;   // bytes to come of the body or of the chunk
  std::size_t m_searched = 0;
  bool m_continueDue = false;     // the client waits for "100 Continue"
  bool m_continueWanted = false;  // and the script lets it have it
  Sha256 m_bodyDigest;
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIRESESSION_H
