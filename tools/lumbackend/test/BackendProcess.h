// The real program beside a test, and ways to talk to it.
#ifndef LUM_BACKEND_TEST_BACKEND_PROCESS_H
#define LUM_BACKEND_TEST_BACKEND_PROCESS_H

#include <LumJson.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Process.h"

namespace lumtest {

// One lumbackend with a root directory of its own, running from construction to destruction.
class BackendProcess {
 public:
  // `options` are added to --root; the constructor waits for the ports to be printed. Throws
  // std::runtime_error when the program ends instead.
  explicit BackendProcess(const std::vector<std::string>& options = {"--port", "0"});

  // Starts the program again on the same root; it is stopped first where it still runs. `limits` is
  // what the shell does before.
  void Start(const std::vector<std::string>& options, const std::string& limits = "true");

  // As kill -9 does.
  void Kill();

  std::uint16_t Port() const { return m_port; }        // of HTTP, or 0
  std::uint16_t TlsPort() const { return m_tlsPort; }  // of HTTPS, or 0
  // "http://127.0.0.1:PORT" + path
  std::string Url(const std::string& path) const;
  std::string TlsUrl(const std::string& path) const;

  // Waits for a line of the access log. False when it does not come.
  bool Logged(const std::string& regex) { return m_process->WaitForLine(regex); }

  const TempDir& Root() const { return m_root; }
  SpawnedProcess& Process() { return *m_process; }

 private:
  TempDir m_root;
  std::unique_ptr<SpawnedProcess> m_process;
  std::uint16_t m_port = 0;
  std::uint16_t m_tlsPort = 0;
};

// What the curl command made of a request.
struct CurlAnswer {
  int exitStatus = -1;  // curl's own
  int status = 0;       // 0: no answer
  std::string body;
  std::string problem;  // curl's message

  LumJson::Value Json() const;
  std::string Error() const { return Json()["error"].AsString(); }
};

// Runs curl with `arguments`. Proxies and configuration files of the machine take no part.
CurlAnswer Curl(const std::vector<std::string>& arguments);

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_BACKEND_PROCESS_H
