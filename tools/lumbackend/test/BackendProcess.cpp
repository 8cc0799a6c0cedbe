// Starting lumbackend and running curl.
#include "BackendProcess.h"

#include <algorithm>
#include <csignal>
#include <stdexcept>

namespace lumtest {

BackendProcess::BackendProcess(const std::vector<std::string>& options) {
  Start(options);
}

void BackendProcess::Start(const std::vector<std::string>& options, const std::string& limits) {
  m_process.reset();
  std::vector<std::string> command{"/bin/sh",   "-c",     limits + "; exec \"$0\" \"$@\"",
                                   LUM_BACKEND, "--root", m_root.Path()};
  command.insert(command.end(), options.begin(), options.end());
  m_process = std::make_unique<SpawnedProcess>(command);
  const auto given = [&](const char* option) {
    return std::find(options.begin(), options.end(), option) != options.end();
  };
  const auto port = [&](const std::string& scheme) {
    std::vector<std::string> groups;
    if (!m_process->WaitForLine("^" + scheme + " .*:([0-9]+)$", &groups)) {
      throw std::runtime_error("lumbackend does not print its port\n" +
                               m_process->Stop().Describe());
    }
    return static_cast<std::uint16_t>(std::stoi(groups[1]));
  };
  if (given("--port") || !given("--tls-port")) {
    m_port = port("http");
  }
  if (given("--tls-port")) {
    m_tlsPort = port("https");
  }
}

void BackendProcess::Kill() {
  m_process->Signal(SIGKILL);
  m_process->Wait();
}

std::string BackendProcess::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

std::string BackendProcess::TlsUrl(const std::string& path) const {
  return "https://127.0.0.1:" + std::to_string(m_tlsPort) + path;
}

LumJson::Value CurlAnswer::Json() const {
  LumJson::Value document;
  if (!document.Parse(body)) {
    throw std::runtime_error("no JSON: " + body);
  }
  return document;
}

CurlAnswer Curl(const std::vector<std::string>& arguments) {
  // -q comes first or counts for nothing.
  std::vector<std::string> command{"curl",           "-q",         "-sS", "--noproxy",   "*", "-w",
                                   "\n%{http_code}", "--max-time", "60",  "--path-as-is"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const ProcessResult result = RunCommand(command, {}, std::chrono::seconds(90));
  CurlAnswer answer;
  answer.exitStatus = result.exitStatus;
  answer.problem = result.err;
  const std::size_t end = result.out.rfind('\n');
  if (end != std::string::npos) {
    answer.body = result.out.substr(0, end);
    answer.status = std::stoi(result.out.substr(end + 1));
  }
  return answer;
}

}  // namespace lumtest
