// lumbackend's connection, from the bytes of requests to those of the answers: no input is answered
// with 500, and every answer has the shape of one.
//
// Input: settings, then what a client sends before it closes its side.

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>

#include "Backend.h"
#include "Connection.h"
#include "Fuzz.h"
#include "Session.h"
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
    m_directory.MakeDir("files");
    m_directory.Write("files/notice.txt", "notice\n");
    std::filesystem::create_directories(m_directory.Path("configs/app/default"));
    m_directory.Write("configs/app/default/application.properties", "a = 1\\\n 2\n# b\nc:\\u00e4");
  }

  const std::string& Path() const { return m_directory.Path(); }

  // Takes back what requests have left behind.
  void Clean() const {
    std::filesystem::remove_all(m_directory.Path("objects"));
    std::filesystem::remove(m_directory.Path("reports.jsonl"));
  }

 private:
  const lumtest::TempDir m_directory;
};

// Serves what `sent` asks for; returns all answers.
std::string Serve(Backend& backend, const std::string& sent) {
  int ends[2];
  int stop[2];
  LUM_REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
  LUM_REQUIRE(pipe2(stop, O_CLOEXEC) == 0);
  LUM_REQUIRE(fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0);
  LUM_REQUIRE(send(ends[1], sent.data(), sent.size(), MSG_NOSIGNAL) ==
              static_cast<ssize_t>(sent.size()));
  LUM_REQUIRE(shutdown(ends[1], SHUT_WR) == 0);
  std::string answers;
  std::thread client([&] {
    char piece[65536];
    ssize_t count = 0;
    while ((count = recv(ends[1], piece, sizeof piece, 0)) > 0) {
      answers.append(piece, static_cast<std::size_t>(count));
    }
  });
  {
    Connection connection(FileDescriptor(ends[0]), stop[0], nullptr);
    Session(backend, connection).Run();
  }
  client.join();
  for (const int descriptor : {ends[1], stop[0], stop[1]}) {
    LUM_REQUIRE(close(descriptor) == 0);
  }
  return answers;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Root root;
  lumtest::FuzzInput input(data, size);
  const unsigned settings = input.Byte();
  Options options;
  options.root = root.Path();
  options.open = (settings & kOpen) != 0;
  if ((settings & kSmall) != 0) {
    options.maxBody = 100;
  }
  if ((settings & kCut) != 0) {
    options.cutAfter = 100;
  }
  std::string sent = input.Rest();
  sent.resize(std::min(sent.size(), kMostBytes));
  Backend backend(options, (settings & kSigned) != 0 ? "key" : "");
  const std::string answers = Serve(backend, sent);
  LUM_REQUIRE(answers.empty() || answers.compare(0, 9, "HTTP/1.1 ") == 0);
  LUM_REQUIRE(answers.compare(0, 12, "HTTP/1.1 500") != 0);
  LUM_REQUIRE(answers.find("\r\n\r\n") != std::string::npos || answers.size() <= 100);
  root.Clean();
  return 0;
}
