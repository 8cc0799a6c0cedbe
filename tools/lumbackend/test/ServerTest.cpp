// Time limits, with less patience than the program has.
#include "Server.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <thread>

#include "support/CaptureFd.h"
#include "support/Files.h"
#include "wire/WireClient.h"

namespace {

using lumtest::WireClient;

class ServerTest : public testing::Test {
 protected:
  // Serves until the test ends.
  void Start(const Patience& patience) {
    Options options;
    options.root = m_temp.Path();
    m_backend.emplace(options, "");
    m_server.emplace(*m_backend, patience);
    const std::string name = m_server->Listen("127.0.0.1", 0, std::nullopt);
    m_port = static_cast<std::uint16_t>(std::stoi(name.substr(name.find(':') + 1)));
    std::promise<void> ready;
    m_thread = std::thread([&] { m_server->Run([&] { ready.set_value(); }); });
    ready.get_future().wait();
  }

  ~ServerTest() override {
    std::raise(SIGTERM);  // as the program is told
    m_thread.join();
  }

  bool Answers() const {
    WireClient client("127.0.0.1", m_port);
    client.Send("GET / HTTP/1.0\r\n\r\n");
    return client.ReadAll().compare(0, 15, "HTTP/1.1 200 OK") == 0;
  }

  lumtest::CaptureStderr m_log;
  lumtest::TempDir m_temp;
  std::optional<Backend> m_backend;
  std::optional<Server> m_server;
  std::uint16_t m_port = 0;
  std::thread m_thread;
};

// Tests are less patient than this.
TEST(Patience, GivesAHeadTenSecondsAndABodyThirtyForEach30KiB) {
  const Patience patience;
  EXPECT_EQ(patience.head, std::chrono::seconds(10));
  EXPECT_EQ(patience.body, std::chrono::seconds(30));
  EXPECT_EQ(patience.bodyBytes, 30u * 1024);
}

TEST_F(ServerTest, AHeadThatDoesNotEndIsGivenUp) {
  Start({.head = std::chrono::milliseconds(200)});
  WireClient client("127.0.0.1", m_port);
  client.Send("GET / HTTP/1.1\r\nA: ");
  EXPECT_EQ(client.ReadAll(), "");
  EXPECT_TRUE(Answers());
}

TEST_F(ServerTest, ABodyThatIsTooSlowIsGivenUp) {
  // Nobody is as fast as that.
  Start({.body = std::chrono::milliseconds(200), .bodyBytes = std::uint64_t{1} << 50});
  WireClient still("127.0.0.1", m_port);
  still.Send("PUT /objects/still HTTP/1.1\r\nContent-Length: 10\r\n\r\nx");
  EXPECT_EQ(still.ReadAll(), "");
  WireClient slow("127.0.0.1", m_port);
  slow.Send("PUT /objects/slow HTTP/1.1\r\nContent-Length: 1000000000000\r\n\r\n");
  while (slow.Send("x")) {
  }
  EXPECT_TRUE(Answers());
  EXPECT_FALSE(lumtest::Exists(m_temp.Path("objects/slow")));
}

TEST_F(ServerTest, ABodyThatIsFastEnoughIsTaken) {
  Start({.bodyBytes = 1});
  WireClient client("127.0.0.1", m_port);
  client.Send("PUT /objects/a HTTP/1.1\r\nContent-Length: 3\r\n\r\na");
  client.Send("bc");
  EXPECT_EQ(client.ReadUntil("\r\n").substr(0, 12), "HTTP/1.1 200");
}

TEST_F(ServerTest, AnIdleConnectionIsGivenUp) {
  Start({.idle = std::chrono::milliseconds(200)});
  WireClient client("127.0.0.1", m_port);
  client.Send("GET /echo HTTP/1.1\r\n\r\n");
  client.ReadUntil("\r\n\r\n");
  client.ReadAll();
  EXPECT_FALSE(client.WasReset());
}

}  // namespace
