// Requests of the service client's kind as users of other libraries would write them: a connection
// of its own each, the server's certificate not verified.

#ifndef LUM_BENCH_PEER_REQUESTS_H
#define LUM_BENCH_PEER_REQUESTS_H

#include <list>
#include <string>

#include "Bare.h"

namespace lumbench {

Reply CurlppGet(const std::string& url, const std::list<std::string>& lines);

struct Target {
  bool tls;
  std::string host;  // an address
  int port;
  std::string path;
};

Reply HttplibGet(const Target& target, const std::list<std::string>& lines);
Reply BeastGet(const Target& target, const std::list<std::string>& lines);

}  // namespace lumbench

#endif  // LUM_BENCH_PEER_REQUESTS_H
