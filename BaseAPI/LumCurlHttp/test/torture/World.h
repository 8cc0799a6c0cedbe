// What one tortured operation has around it: the three clients, a server, files, and the process's
// two outputs; and what can be seen of them after a call.

#ifndef LUM_TEST_TORTURE_WORLD_H
#define LUM_TEST_TORTURE_WORLD_H

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "../operations/Operations.h"
#include "Fault.h"
#include "support/CaptureFd.h"
#include "support/Files.h"
#include "tls/TlsMaterial.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {

enum class Connection {
  kPlain,        // http
  kTls,          // https
  kCertificate,  // https with a server that asks for a client certificate
};

// What the other side does.
enum class Scenario {
  kNone,     // nothing: no transfer
  kAnswer,   // 200 with a document
  kError,    // 500 with a document
  kNotJson,  // 200 with a text
  kCut,      // 200, and the body breaks off
  kRefused,  // the connection is refused
};
const char* NameOf(Scenario scenario);

// Everything that an operation is judged by.
struct Observation {
  std::string answer;  // the result, or "std::bad_alloc"
  // Those that arrived whole: head, without the line that frames the body, and the body's digest.
  std::vector<std::string> requests;
  std::map<std::string, std::string> files;  // by path in the directory: digests
  std::string output;                        // on standard output
  std::vector<std::string> log;              // lines on standard error
  long blocks = 0;                           // of memory, allocated and not freed
  bool descriptorLeft = false;               // open, that was not so before
};

constexpr char kPassPhrase[] = "pass phrase";

class World : private Caller::Around {
  // Ahead of the clients, whose settings are logged.
  CaptureStdout m_output;
  CaptureStderr m_log;

 public:
  // One thread's: the one that makes it, which is the one that faults strike.
  World(Connection connection, Scenario scenario);
  ~World() override;
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // Runs `operation` once and tells all that came of it. `fault`, unless null, strikes at occasion
  // `nth`.
  Observation Observe(const std::function<std::string(World&)>& operation, Fault* fault = nullptr,
                      std::size_t nth = 0);

  // Removes what a run may have left in the directory.
  void CleanUp();

  // Whether `url` is that of the connection, as it is at first, or that of a server without TLS.
  void LeadToPlainServer(bool plain) { url = plain ? m_plainUrl : m_url; }

  const std::string& Directory() const { return m_directory.Path(); }
  std::string Path(const std::string& name) const { return m_directory.Path(name); }

  // The digests of whole archives, by their path in the directory.
  const std::map<std::string, std::string>& Archives() const { return m_archives; }

  // Calls by its Try have the fault armed; everything around them is safe.
  Caller caller{false};
  std::string url;                 // of the server
  std::optional<TlsMaterial> tls;  // with TLS

 private:
  void Begin() override;
  void End() override;
  static void WaitFor(const WireServer& server);
  WireReply Answer(const WireRequest& request);
  std::map<std::string, std::string> Files() const;

  const Scenario m_scenario;
  const bool m_served;  // connections may come in
  Fault* m_fault = nullptr;
  std::size_t m_nth = 0;
  TempDir m_directory;
  TempDir m_tlsDirectory;
  std::map<std::string, std::string> m_archives;
  RefusedPort m_refused;
  WireServer m_plainServer;
  std::unique_ptr<WireServer> m_tlsServer;  // with TLS
  std::string m_url;
  std::string m_plainUrl;
  std::mutex m_mutex;  // guards m_requests
  std::vector<std::string> m_requests;
};

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_WORLD_H
