// The surroundings of one tortured operation.

#include "World.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "FailingMalloc.h"
#include "LumFileSys.h"
#include "wire/WireClient.h"

namespace lumtest {
namespace {

namespace fs = std::filesystem;

// More than one buffer of stdio's and of libcurl's.
constexpr std::size_t kFileBytes = 40000;
constexpr std::size_t kDownloadBytes = 300000;

const char kDocument[] =
    R"({"token": "a token of more than a few characters", "list": [1, {"a": null}]})";
const char kText[] = "no document, though of more than a few characters";

// Needs no OpenSSL, which may not be initialised yet.
std::string Digest(const std::string& path) {
  return std::to_string(std::hash<std::string>()(ReadFile(path)));
}

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// The lines of a log, without the time that libcurl tells in "after 3 ms".
std::vector<std::string> Lines(const std::string& text) {
  static const std::regex kDuration(" after [0-9]+ ms");
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(std::regex_replace(line, kDuration, " after some ms"));
  }
  return lines;
}

// The next one that the process would get: it changes as soon as one more stays open.
int NextDescriptor() {
  const int next = fcntl(0, F_DUPFD_CLOEXEC, 0);
  close(next);
  return next;
}

}  // namespace

const char* NameOf(Scenario scenario) {
  switch (scenario) {
    case Scenario::kNone:
      return "-";
    case Scenario::kAnswer:
      return "200";
    case Scenario::kError:
      return "500";
    case Scenario::kNotJson:
      return "200, not JSON";
    case Scenario::kCut:
      return "cut short";
    case Scenario::kRefused:
      return "refused";
  }
  return "";
}

World::World(Connection connection, Scenario scenario)
    : m_scenario(scenario),
      m_served(scenario != Scenario::kNone && scenario != Scenario::kRefused) {
  caller.around = this;
  caller.shared = true;  // the last error is a call more, which no fault strikes
  caller.document.AddJsonValue("accessId", "an identifier of some length");
  caller.document.AddJsonValue("text", std::string(200, 'x'));
  caller.token = "a token of more than fifteen characters";
  caller.identifier = "an-identifier-of-more-than-fifteen-characters";
  caller.fileName = "a-name-of-more-than-fifteen-characters";
  caller.topic = "topic";
  caller.lines = {"X-One: 1", "X-Empty: "};
  if (connection != Connection::kPlain) {
    tls = lumtools::MakeTlsMaterial(m_tlsDirectory.Path(), kPassPhrase);
  }
  const auto answer = [this](const WireRequest& request) { return Answer(request); };
  m_plainServer.SetHandler(answer);
  if (tls) {
    WireOptions options;
    options.tls = MakeWireTls(*tls, connection == Connection::kCertificate
                                        ? WireTls::ClientCertificate::kRequired
                                        : WireTls::ClientCertificate::kNone);
    m_tlsServer = std::make_unique<WireServer>(options);
    m_tlsServer->SetHandler(answer);
  }
  const bool refused = scenario == Scenario::kRefused;
  m_plainUrl = refused ? m_refused.Url("http", "/x") : m_plainServer.Url("/x");
  m_url = !tls ? m_plainUrl : refused ? m_refused.Url("https", "/x") : m_tlsServer->Url("/x");
  url = m_url;

  m_directory.Write("a.log", GeneratedBytes(0, kFileBytes));
  m_directory.Write("b.log", GeneratedBytes(7, 100));
  m_directory.MakeDir("logs");
  m_directory.Write("logs/a", GeneratedBytes(0, kFileBytes));
  m_directory.MakeDir("logs/below");
  fs::create_symlink("../a", Path("logs/below/link"));
  caller.stream.reset(std::fopen(Path("b.log").c_str(), "rb"));

  // What the archives of these files are like when nothing goes wrong.
  if (LumCompressAndDeCompress::CompressFile(Path("a.log").c_str()) != 0 ||
      LumCompressAndDeCompress::CompressFilePath(Path("logs").c_str()) != 0 ||
      LumCompressAndDeCompress::CompressFileGroup((Path("a.log") + "\n" + Path("b.log")).c_str(),
                                                  Path("group").c_str()) != 0) {
    throw std::runtime_error("cannot pack");
  }
  for (const char* name : {"a.log.tar.gz", "logs.tar.gz", "group.tar.gz"}) {
    m_archives[name] = Digest(Path(name));
  }
  CleanUp();
}

World::~World() {
  m_plainServer.Stop();
  if (m_tlsServer) {
    m_tlsServer->Stop();
  }
}

Observation World::Observe(const std::function<std::string(World&)>& operation, Fault* fault,
                           std::size_t nth) {
  Observation seen;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.clear();
  }
  (void)m_log.Take();
  (void)m_output.Take();
  m_fault = fault;
  m_nth = nth;
  if (fault != nullptr) {
    fault->Arm(0);  // an operation that does not come to Try is not struck
  }

  // The answer is kept out of the count of blocks.
  static std::array<char, 4096> kept;
  std::size_t length = 0;
  const int nextDescriptor = NextDescriptor();
  const long blocks = LiveBlocksOfThisThread();
  const auto keep = [&length](const char* text, std::size_t size) {
    length = std::min(size, kept.size());
    std::copy_n(text, length, kept.begin());
  };
  try {
    const std::string answer = operation(*this);
    keep(answer.data(), answer.size());
  } catch (const std::bad_alloc&) {
    keep("std::bad_alloc", 14);
  } catch (const std::exception& other) {
    keep("another exception", 17);
  }
  seen.blocks = LiveBlocksOfThisThread() - blocks;
  seen.answer.assign(kept.data(), length);

  if (m_served) {
    WaitFor(m_plainServer);
    m_plainServer.Forget();
  }
  if (m_served && m_tlsServer) {
    WaitFor(*m_tlsServer);
    m_tlsServer->Forget();
  }
  seen.descriptorLeft = NextDescriptor() != nextDescriptor;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    seen.requests = m_requests;
  }
  seen.files = Files();
  seen.output = m_output.Take();
  seen.log = Lines(m_log.Take());
  std::clearerr(stdout);
  return seen;
}

void World::Begin() {
  if (m_fault != nullptr) {
    m_fault->Arm(m_nth);
  }
}

void World::End() {
  if (m_fault != nullptr) {
    m_fault->Disarm();
  }
}

// Until the server has seen the last of every connection that a call has made. One more connection,
// the last in the server's queue, shows that those before it have been taken up.
void World::WaitFor(const WireServer& server) {
  WireClient last("127.0.0.1", server.Port());
  last.HalfClose();
  last.ReadAll();
  if (!server.WaitIdle()) {
    throw std::runtime_error("the server does not come to rest");
  }
}

void World::CleanUp() {
  std::vector<fs::path> left;
  for (const fs::directory_entry& entry : fs::directory_iterator(m_directory.Path())) {
    const std::string name = entry.path().filename();
    if (name == "download" || Contains(name, ".tar.gz") || Contains(name, ".lum-archive-")) {
      left.push_back(entry.path());
    }
  }
  for (const fs::path& path : left) {
    fs::remove(path);
  }
}

WireReply World::Answer(const WireRequest& request) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.push_back(request.head + request.bodySha256 + " " + request.clientSubject);
  }
  switch (m_scenario) {
    case Scenario::kError:
      return StatusReply(500, kDocument);
    case Scenario::kNotJson:
      return StatusReply(200, kText);
    case Scenario::kCut:
      return WireReply(WireHead(200, {"Content-Length: 1000"}) + kText).Close();
    default:
      return Contains(request.target, "/file") ? GeneratedReply(kDownloadBytes)
                                               : StatusReply(200, kDocument);
  }
}

std::map<std::string, std::string> World::Files() const {
  std::map<std::string, std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_directory.Path())) {
    const std::string name = entry.path().string().substr(m_directory.Path().size() + 1);
    if (entry.is_symlink()) {
      files[name] = fs::read_symlink(entry.path());
    } else if (entry.is_directory()) {
      files[name] = "directory";
    } else {
      files[name] = Digest(entry.path());
    }
  }
  return files;
}

}  // namespace lumtest
