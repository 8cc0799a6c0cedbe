// A GET of the service client's kind as users of other libraries would write it: a connection of
// its own each, the server's certificate not verified, the reply in a string.

#ifndef LUM_BENCH_PEER_REQUESTS_H
#define LUM_BENCH_PEER_REQUESTS_H

#include <list>
#include <string>

namespace lumbench {

struct Target {
  bool tls;
  std::string host;  // an address
  int port;
  std::string path;
};

// The status; the reply's body in `body`.
int HttplibGet(const Target& target, const std::list<std::string>& lines, std::string& body);
int BeastGet(const Target& target, const std::list<std::string>& lines, std::string& body);

}  // namespace lumbench

#endif  // LUM_BENCH_PEER_REQUESTS_H
