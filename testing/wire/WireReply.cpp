// Builds scripts and common answers; gates.

#include "wire/WireReply.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <iterator>
#include <system_error>
#include <utility>

#include "wire/WireGate.h"

namespace lumtest {

namespace {

const char* ReasonPhrase(int status) {
  switch (status) {
    case 100:
      return "Continue";
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 204:
      return "No Content";
    case 301:
      return "Moved Permanently";
    case 302:
      return "Found";
    case 307:
      return "Temporary Redirect";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 417:
      return "Expectation Failed";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 503:
      return "Service Unavailable";
    default:
      return "Status";
  }
}

bool HasBody(int status) {
  return status >= 200 && status != 204 && status != 304;
}

}  // namespace

WireGate::State::State() : opened(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (opened < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
}

WireGate::State::~State() {
  close(opened);
}

void WireGate::State::Reach() {
  const std::lock_guard<std::mutex> lock(mutex);
  reached = true;
  changed.notify_all();
}

WireGate::WireGate() : m_state(std::make_shared<State>()) {}

void WireGate::Release() {
  // Nobody ever reads the counter back, so that the gate stays open.
  if (eventfd_write(m_state->opened, 1) != 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd_write");
  }
}

bool WireGate::WaitReached(std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline, [this] { return m_state->reached; });
}

WireReply& WireReply::Add(Step::Kind kind, std::string bytes, std::uint64_t count,
                          std::chrono::milliseconds pause) {
  m_steps.push_back(Step{kind, std::move(bytes), count, pause, std::nullopt, nullptr});
  return *this;
}

WireReply& WireReply::At(WireStart start) {
  m_start = start;
  return *this;
}

WireReply& WireReply::AtBytes(std::uint64_t count) {
  m_start = count == 0 ? WireStart::kHandshake : WireStart::kBytes;
  m_startBytes = count;
  return *this;
}

WireReply& WireReply::NoContinue() {
  m_continue = false;
  return *this;
}

WireReply& WireReply::Send(std::string bytes) {
  return Add(Step::Kind::kSend, std::move(bytes));
}

WireReply& WireReply::Repeat(std::string bytes, std::uint64_t times) {
  return Add(Step::Kind::kRepeat, std::move(bytes), times);
}

WireReply& WireReply::SendGenerated(std::uint64_t count) {
  return Add(Step::Kind::kGenerated, "", count);
}

WireReply& WireReply::Drip(std::string bytes, std::size_t piece, std::chrono::milliseconds pause) {
  return Add(Step::Kind::kDrip, std::move(bytes), piece, pause);
}

WireReply& WireReply::SendBeneathTls(std::string bytes) {
  return Add(Step::Kind::kSendBeneathTls, std::move(bytes));
}

WireReply& WireReply::Wait(const WireGate& gate) {
  Add(Step::Kind::kWait);
  m_steps.back().gate = gate;
  return *this;
}

WireReply& WireReply::Pause(std::chrono::milliseconds duration) {
  return Add(Step::Kind::kPause, "", 0, duration);
}

WireReply& WireReply::ReadBytes(std::uint64_t count) {
  return Add(Step::Kind::kReadBytes, "", count);
}

WireReply& WireReply::ReadBody() {
  return Add(Step::Kind::kReadBody);
}

WireReply& WireReply::Call(std::function<void()> call) {
  Add(Step::Kind::kCall);
  m_steps.back().call = std::move(call);
  return *this;
}

WireReply& WireReply::Stall() {
  return Add(Step::Kind::kStall);
}

WireReply& WireReply::HalfClose() {
  return Add(Step::Kind::kHalfClose);
}

WireReply& WireReply::Close() {
  return Add(Step::Kind::kClose);
}

WireReply& WireReply::Drop() {
  return Add(Step::Kind::kDrop);
}

WireReply& WireReply::Reset() {
  return Add(Step::Kind::kReset);
}

WireReply& WireReply::Alert() {
  return Add(Step::Kind::kAlert);
}

std::string WireHead(int status, const std::vector<std::string>& headerLines) {
  std::string head = "HTTP/1.1 " + std::to_string(status) + " " + ReasonPhrase(status) + "\r\n";
  for (const std::string& line : headerLines) {
    head += line + "\r\n";
  }
  return head + "\r\n";
}

std::string WireAnswer(int status, const std::string& body,
                       const std::vector<std::string>& headerLines) {
  if (!HasBody(status)) {
    return WireHead(status, headerLines);
  }
  std::vector<std::string> lines = headerLines;
  lines.push_back("Content-Length: " + std::to_string(body.size()));
  return WireHead(status, lines) + body;
}

std::string WireChunk(const std::string& bytes) {
  char size[20];
  char* const end = std::to_chars(std::begin(size), std::end(size), bytes.size(), 16).ptr;
  return std::string(size, end) + "\r\n" + bytes + "\r\n";
}

std::string WireContinue() {
  return WireHead(100);
}

WireReply StatusReply(int status, const std::string& body,
                      const std::vector<std::string>& headerLines) {
  return WireReply(WireAnswer(status, body, headerLines));
}

WireReply JsonReply(const std::string& json, int status) {
  return StatusReply(status, json, {"Content-Type: application/json"});
}

WireReply ChunkedReply(const std::vector<std::string>& chunks, int status) {
  WireReply reply(WireHead(status, {"Transfer-Encoding: chunked"}));
  for (const std::string& chunk : chunks) {
    reply.Send(WireChunk(chunk));
  }
  return reply.Send(WireChunk(""));
}

WireReply GeneratedReply(std::uint64_t size, int status) {
  return WireReply(WireHead(status, {"Content-Type: application/octet-stream",
                                     "Content-Length: " + std::to_string(size)}))
      .SendGenerated(size);
}

}  // namespace lumtest
