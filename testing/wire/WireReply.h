// Scripts for the wire server: what it does in answer to one request, step by step.

#ifndef LUM_TESTING_WIRE_WIREREPLY_H
#define LUM_TESTING_WIRE_WIREREPLY_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace lumtest {

class WireSession;

// How long the waits of these fixtures last by default. A wait ends as soon as its condition holds;
// only a failing test ever waits this long.
constexpr std::chrono::milliseconds kWireDeadline{30000};

// A gate in a script: the server stops there until the test lets it pass. Copies are the same gate.
// May be used from any thread.
class WireGate {
 public:
  WireGate();

  // Lets everything pass that waits at the gate, now and later.
  void Release();

  // Waits until a server has come to the gate (everything before it in the script is then done).
  // False when `deadline` has passed first.
  bool WaitReached(std::chrono::milliseconds deadline = kWireDeadline) const;

 private:
  friend class WireSession;
  struct State;
  std::shared_ptr<State> m_state;
};

// The moment at which a script begins to run.
enum class WireStart {
  kHandshake,  // the connection stands, with TLS after its handshake; nothing has been read
  kBytes,      // a given number of the request's bytes have been read, and not one more
  kHead,       // the head is there, of the body nothing has been asked for
  kBody,       // the whole request is there (the usual)
};

// One script. The members add steps, which run in the order in which they were added; each returns
// the script, so that calls can be chained. When the steps are through, the server reads what is
// missing of the request and then waits for the next one on the same connection, unless a step has
// ended the connection.
//
// A script is a plain value; not for use by two threads at once.
class WireReply {
 public:
  using Step = std::function<void(WireSession&)>;

  WireReply() = default;
  // A script that sends `bytes`.
  explicit WireReply(std::string bytes) { Send(std::move(bytes)); }

  // --- When it begins. Without any of these: WireStart::kBody.

  // kHandshake scripts belong to the next connection that is accepted, others to the next request.
  // Not for kBytes. A request with "Expect: 100-continue" is told to go on by kBody
  // scripts alone; one that begins earlier sends WireContinue() itself if it wants to.
  WireReply& At(WireStart start);

  // WireStart::kBytes: `count` bytes of the request, head and body together. 0 is kHandshake.
  WireReply& AtBytes(std::uint64_t count);

  // --- What is sent. An error in sending (the client is gone) ends script and connection.

  WireReply& Send(std::string bytes);

  // Sends `bytes` so many times, with a pause after each.
  WireReply& Drip(std::string bytes, int times, std::chrono::milliseconds pause);

  // With TLS: puts `bytes` on the TCP connection itself, beneath the encryption.
  WireReply& SendBeneathTls(std::string bytes);

  // --- What is waited for. A client that closes its side while the server waits ends the script.

  WireReply& Wait(const WireGate& gate);

  // For time limits under test. To keep two threads in step use Wait.
  WireReply& Pause(std::chrono::milliseconds duration);

  // Reads `count` more bytes of the request, and no more.
  WireReply& ReadBytes(std::uint64_t count);

  // Reads the rest of the request.
  WireReply& ReadBody();

  // With kHandshake: passes bytes on to another server of this machine, and back, until so many of
  // the client's or of that server's have passed and not one more, then resets the connection. The
  // end of either side is the other's, too.
  WireReply& PassOn(std::uint16_t port, std::uint64_t clientBytes, std::uint64_t serverBytes);

  // Runs `call` on the connection's thread. It must not wait for this server to stop.
  WireReply& Call(std::function<void()> call);

  // Neither reads nor sends any more until the client is gone.
  WireReply& Stall();

  // --- How the connection ends. Nothing after one of these is run, HalfClose excepted.

  // Says that nothing more will be sent (TLS too), but goes on reading.
  WireReply& HalfClose();

  // The polite end: as HalfClose, then drops what still comes in until the client closes too. The
  // client gets all that was sent, even while it is still sending itself.
  WireReply& Close();

  // close(2) on the spot, with TLS without its closing message. The kernel turns this into a reset
  // when bytes of the client have not been read.
  WireReply& Drop();

  // Resets the connection (RST) after what was sent has left for the client.
  WireReply& Reset();

  // With TLS: ends in a genuine fatal alert (bad_record_mac), then Close.
  WireReply& Alert();

  // --- For the server.

  WireStart Start() const { return m_start; }
  std::uint64_t StartBytes() const { return m_startBytes; }
  const std::vector<Step>& Steps() const { return m_steps; }

 private:
  WireReply& Add(Step step);

  WireStart m_start = WireStart::kBody;
  std::uint64_t m_startBytes = 0;
  std::vector<Step> m_steps;
};

// --- Common answers.

// A status line and header lines with the blank line that ends them.
std::string WireHead(int status, const std::vector<std::string>& headerLines = {});

// A whole answer as bytes: status line, `headerLines`, Content-Length, body. Statuses that have no
// body (1xx, 204, 304) get neither.
std::string WireAnswer(int status, const std::string& body = "",
                       const std::vector<std::string>& headerLines = {});

// `bytes` as one chunk of a chunked body; no bytes: the chunk that ends it.
std::string WireChunk(const std::string& bytes);

// The interim answer "100 Continue".
std::string WireContinue();

// An answer with `status`, `body` and any further header lines.
WireReply StatusReply(int status, const std::string& body = "",
                      const std::vector<std::string>& headerLines = {});

// `json` with its content type.
WireReply JsonReply(const std::string& json, int status = 200);

// Bytes `offset` to `offset + size` of the pattern 0, 1, ... 250, 0, 1, ... The period is prime:
// losing or repeating a buffer of the usual sizes shifts the rest.
std::string GeneratedBytes(std::size_t offset, std::size_t size);

// An answer with the first `size` bytes of that pattern.
WireReply GeneratedReply(std::size_t size, int status = 200);

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIREREPLY_H
