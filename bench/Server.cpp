// A server that costs next to nothing: it discards what it is sent and answers every request with
// the same 300 bytes of JSON.
//
//   LumBenchServer [DELAY]
//
// Listens on a port of 127.0.0.1 that the kernel chooses, prints it, and runs until standard input
// ends. DELAY is a number of milliseconds to wait before each answer, so that a client always finds
// it missing at first: the work of a request is then the same each time.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kBufferSize = 1 << 20;

std::string Answer() {
  std::string body = R"({"device": "vehicle-00017", "state": "driving", "time": 1700000000000, )"
                     R"("speed": 87.5, "position": {"latitude": 40.123456, "longitude": 116.5}, )"
                     R"("errors": [17, 23], "owner": null, "active": true, "note": ")";
  body.append(300 - 2 - body.size(), 'n');
  body += "\"}";
  return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 300\r\n\r\n" + body;
}

bool Send(int connection, const std::string& text) {
  return send(connection, text.data(), text.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(text.size());
}

// Throws `size` bytes away; MSG_TRUNC does so without copying them.
bool Discard(int connection, char* buffer, unsigned long long size) {
  while (size > 0) {
    const ssize_t got =
        recv(connection, buffer, size < kBufferSize ? static_cast<std::size_t>(size) : kBufferSize,
             MSG_TRUNC);
    if (got <= 0) {
      return false;
    }
    size -= static_cast<unsigned long long>(got);
  }
  return true;
}

void Serve(int connection, int delay) {
  static const std::string answer = Answer();
  const int on = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  std::vector<char> buffer(kBufferSize);
  std::string head;
  while (true) {
    const std::size_t end = head.find("\r\n\r\n");
    if (end == std::string::npos) {
      const ssize_t got = recv(connection, buffer.data(), 65536, 0);
      if (got <= 0) {
        break;
      }
      head.append(buffer.data(), static_cast<std::size_t>(got));
      continue;
    }
    unsigned long long size = 0;
    const char* length = strcasestr(head.c_str(), "\r\ncontent-length:");
    if (length != nullptr && length < head.c_str() + end) {
      size = std::strtoull(length + std::strlen("\r\ncontent-length:"), nullptr, 10);
    }
    const char* expect = strcasestr(head.c_str(), "\r\nexpect:");
    if (expect != nullptr && expect < head.c_str() + end &&
        !Send(connection, "HTTP/1.1 100 Continue\r\n\r\n")) {
      break;
    }
    const std::size_t sent = head.size() - end - 4;
    if (sent < size && !Discard(connection, buffer.data(), size - sent)) {
      break;
    }
    head.erase(0, end + 4 + (sent < size ? sent : static_cast<std::size_t>(size)));
    if (delay > 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    }
    if (!Send(connection, answer)) {
      break;
    }
  }
  close(connection);
}

}  // namespace

int main(int argc, char** argv) {
  const int delay = argc > 1 ? std::atoi(argv[1]) : 0;
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener, SOMAXCONN) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    std::perror("LumBenchServer");
    return 1;
  }
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  std::thread([] {
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    _exit(0);
  }).detach();
  while (true) {
    const int connection = accept(listener, nullptr, nullptr);
    if (connection < 0) {
      continue;
    }
    std::thread(Serve, connection, delay).detach();
  }
}
