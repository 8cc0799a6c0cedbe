// lumbackend's connection, from the bytes of requests to those of the answers: no input is answered
// with 500, and every answer has the shape of one.
//
// Input: settings, then what a client sends before it closes its side.

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "Backend.h"
#include "Connection.h"
#include "Fuzz.h"
#include "support/Files.h"

namespace {

constexpr unsigned kOpen = 1;              // no token is asked for
constexpr unsigned kSigned = 2;            // uploads need a signature
constexpr unsigned kSmall = 4;             // bodies of more than 100 bytes are refused
constexpr unsigned kCut = 8;               // answers end after 100 bytes
constexpr std::size_t kMostBytes = 65536;  // that fit the socket's buffer

// A root with something to be had by every route.
class Root {
 public:
  Root() {
    m_directory.Write("files/notice.txt", "notice\n");
    std::filesystem::create_directories(m_directory.Path("configs/app/default"));
    m_directory.Write("configs/app/default/application.properties", "a = 1\\\n 2\n# b\nc:\\u00e4");
  }

  const std::string& Path() const { return m_directory.Path(); }

  // Takes back what requests have left behind.
  void Clean(unsigned settings) const {
    const std::string objects = m_directory.Path(std::to_string(settings) + "/objects");
    for (const auto& entry : std::filesystem::directory_iterator(objects)) {
      std::filesystem::remove_all(entry.path());
    }
  }

 private:
  const lumtest::TempDir m_directory;
};

// Serves what `sent` asks for; returns all answers.
std::string Serve(Backend& backend, const std::string& sent) {
  namespace asio = boost::asio;
  using asio::ip::tcp;
  asio::io_context io;
  tcp::acceptor acceptor(io, {asio::ip::address_v4::loopback(), 0});
  tcp::socket client(io);
  client.connect(acceptor.local_endpoint());
  Patience patience;
  patience.farewell = std::chrono::milliseconds(10);
  Connection connection(acceptor.accept(), nullptr, backend, patience);
  std::string answers;
  std::thread thread([&] {
    boost::system::error_code end;
    asio::write(client, asio::buffer(sent), end);
    client.shutdown(tcp::socket::shutdown_send, end);
    asio::read(client, asio::dynamic_buffer(answers), end);
  });
  asio::co_spawn(io, connection.Run(), [&](const std::exception_ptr& failure) {
    LUM_REQUIRE(!failure);
    connection.Stop();
  });
  io.run();
  thread.join();
  return answers;
}

// One back end for each of the settings, since each makes a database.
Backend& BackendFor(unsigned settings, const Root& root) {
  static std::map<unsigned, std::unique_ptr<Backend>> backends;
  std::unique_ptr<Backend>& backend = backends[settings];
  if (!backend) {
    Options options;
    options.root = root.Path() + "/" + std::to_string(settings);
    options.keep = 100;
    options.open = (settings & kOpen) != 0;
    if ((settings & kSmall) != 0) {
      options.maxBody = 100;
    }
    if ((settings & kCut) != 0) {
      options.cutAfter = 100;
    }
    std::filesystem::create_directories(options.root);
    for (const char* name : {"files", "configs"}) {
      std::filesystem::copy(root.Path() + "/" + name, options.root + "/" + name,
                            std::filesystem::copy_options::recursive);
    }
    backend = std::make_unique<Backend>(options, (settings & kSigned) != 0 ? "key" : "");
  }
  return *backend;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Root root;
  lumtest::FuzzInput input(data, size);
  const unsigned settings = input.Byte() & (kOpen | kSigned | kSmall | kCut);
  std::string sent = input.Rest();
  sent.resize(std::min(sent.size(), kMostBytes));
  const std::string answers = Serve(BackendFor(settings, root), sent);
  LUM_REQUIRE(answers.empty() || answers.compare(0, 9, "HTTP/1.1 ") == 0);
  LUM_REQUIRE(answers.compare(0, 12, "HTTP/1.1 500") != 0);
  LUM_REQUIRE(answers.find("\r\n\r\n") != std::string::npos || answers.size() <= 100);
  root.Clean(settings);
  return 0;
}
