// Builds scripts and common answers.

#include "wire/WireReply.h"

#include <sstream>
#include <utility>

#include "wire/WireSession.h"

namespace lumtest {

WireReply& WireReply::Add(Step step) {
  m_steps.push_back(std::move(step));
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

WireReply& WireReply::Send(std::string bytes) {
  return Add([bytes = std::move(bytes)](WireSession& session) { session.Write(bytes); });
}

WireReply& WireReply::Drip(std::string bytes, int times, std::chrono::milliseconds pause) {
  return Add([bytes = std::move(bytes), times, pause](WireSession& session) {
    for (int i = 0; i < times; ++i) {
      session.Write(bytes);
      session.Hold(pause);
    }
  });
}

WireReply& WireReply::SendBeneathTls(std::string bytes) {
  return Add([bytes = std::move(bytes)](WireSession& session) { session.WriteBeneathTls(bytes); });
}

WireReply& WireReply::Wait(const WireGate& gate) {
  return Add([gate](WireSession& session) { session.WaitAt(gate); });
}

WireReply& WireReply::Pause(std::chrono::milliseconds duration) {
  return Add([duration](WireSession& session) { session.Hold(duration); });
}

WireReply& WireReply::ReadBytes(std::uint64_t count) {
  return Add([count](WireSession& session) { session.ReadMore(count); });
}

WireReply& WireReply::ReadBody() {
  return Add([](WireSession& session) { session.ReadMore(WireSession::kNoLimit); });
}

WireReply& WireReply::PassOn(std::uint16_t port, std::uint64_t clientBytes,
                             std::uint64_t serverBytes) {
  return Add([=](WireSession& session) { session.PassOn(port, clientBytes, serverBytes); });
}

WireReply& WireReply::Call(std::function<void()> call) {
  return Add([call = std::move(call)](WireSession&) { call(); });
}

WireReply& WireReply::Stall() {
  return Add([](WireSession& session) { session.Hold(WireSession::kForEver); });
}

WireReply& WireReply::HalfClose() {
  return Add([](WireSession& session) { session.HalfClose(); });
}

WireReply& WireReply::Close() {
  return Add([](WireSession& session) { session.Close(); });
}

WireReply& WireReply::Drop() {
  return Add([](WireSession& session) { session.Leave(WireEnd::kByServer); });
}

WireReply& WireReply::Reset() {
  return Add([](WireSession& session) { session.Reset(); });
}

WireReply& WireReply::Alert() {
  return Add([](WireSession& session) { session.Alert(); });
}

std::string WireHead(int status, const std::vector<std::string>& headerLines) {
  std::string head = "HTTP/1.1 " + std::to_string(status) + (status == 200 ? " OK" : " Status");
  for (const std::string& line : headerLines) {
    head += "\r\n" + line;
  }
  return head + "\r\n\r\n";
}

std::string WireAnswer(int status, const std::string& body,
                       const std::vector<std::string>& headerLines) {
  if (status < 200 || status == 204 || status == 304) {
    return WireHead(status, headerLines);
  }
  std::vector<std::string> lines = headerLines;
  lines.push_back("Content-Length: " + std::to_string(body.size()));
  return WireHead(status, lines) + body;
}

std::string WireChunk(const std::string& bytes) {
  std::ostringstream chunk;
  chunk << std::hex << bytes.size() << "\r\n" << bytes << "\r\n";
  return chunk.str();
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

std::string GeneratedBytes(std::size_t offset, std::size_t size) {
  constexpr std::size_t kPeriod = 251;
  std::string period;
  for (std::size_t i = 0; i < kPeriod; ++i) {
    period += static_cast<char>((offset + i) % kPeriod);
  }
  std::string bytes;
  while (bytes.size() < size) {
    bytes += period;
  }
  bytes.resize(size);
  return bytes;
}

WireReply GeneratedReply(std::size_t size, int status) {
  return StatusReply(status, GeneratedBytes(0, size), {"Content-Type: application/octet-stream"});
}

}  // namespace lumtest
