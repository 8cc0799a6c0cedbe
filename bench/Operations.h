// The product's operations, each beside the same request over libcurl alone.

#ifndef LUM_BENCH_OPERATIONS_H
#define LUM_BENCH_OPERATIONS_H

#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>

#include <array>
#include <list>
#include <string>
#include <vector>

#include "Bare.h"
#include "Rounds.h"

namespace lumbench {

struct Operation {
  std::string name;
  std::vector<Candidate> candidates;
};

// The clients of one thread: a LumCurlHttp sends one request at a time.
struct Clients {
  LumCurlHttp general;
  LumCurlOrvOps service;
  LumApollo apollo;
  LumApolloEnv env;
};
using ClientsOfThreads = std::array<Clients, 16>;

// What the requests carry.
struct Work {
  // Takes the document that the server at `url` answers with; ends the program when it is none.
  explicit Work(const std::string& url);
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  const std::string token = "0123456789abcdef0123456789abcdef";
  const std::list<std::string> headers = {"Content-Type: application/json",
                                          "X-Auth-Token: " + token};
  const Lines lines = {headers.front().c_str(), headers.back().c_str()};
  std::string text;
  LumJson::Value document;
};

// JSON over `url`, by the general and the service client. Whoever sends the request does the same
// with documents, by LumJson: reads the answer, and copies and writes what RefreshToken sends.
std::vector<Operation> Operations(ClientsOfThreads& clients, const Work& work,
                                  const std::string& url);

// The configuration client's, from "host:port".
Operation Fetch(ClientsOfThreads& clients, const std::string& authority);

bool IsDocument(const Reply& reply);

}  // namespace lumbench

#endif  // LUM_BENCH_OPERATIONS_H
