// The command line of lumbackend.
#ifndef LUM_BACKEND_OPTIONS_H
#define LUM_BACKEND_OPTIONS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// Everything that the command line settles. A plain record: written once, then only read.
struct Options {
  std::string root;                // directory that holds files/, objects/, configs/, lumbackend.db
  std::string bind = "127.0.0.1";  // numeric IPv4 or IPv6 address
  std::optional<std::uint16_t> port;     // plain HTTP; 0: the kernel chooses; unset: not served
  std::optional<std::uint16_t> tlsPort;  // HTTPS; 0: the kernel chooses; unset: not served

  std::uint64_t keep = 1'000'000;  // exchanges, and reports, that newer ones do not push out

  std::string tlsDir;    // self-made TLS material; empty: ROOT/tls
  std::string cert;      // own server certificate, PEM; set together with `key`
  std::string key;       // its private key, PEM, not encrypted
  std::string clientCa;  // authorities of the client certificates; empty: none asked for

  unsigned tokenLifetime = 3600;   // seconds; 0: every token has expired when it is handed out
  bool open = false;               // no token is asked for
  std::vector<std::string> hosts;  // names that requests and pages may come from
  std::string signKeyFile;         // key of the upload signatures; empty: not checked
  std::optional<std::uint64_t> maxBody;  // bytes; unset: 64 MiB for JSON, no limit for objects

  double failRate = 0;                    // share of the requests that fail on purpose, 0 to 1
  std::uint64_t seed = 0;                 // of the sequence that says which ones fail
  std::optional<int> status;              // status of every answer
  unsigned delay = 0;                     // milliseconds before every answer
  std::optional<std::uint64_t> cutAfter;  // bytes of an answer after which the connection closes
};

// The parser that fills `options`, which must outlive it. `Parse` of the result throws
// CLI::ParseError as CLI11 documents it. Its help is `width` characters wide.
std::unique_ptr<CLI::App> MakeParser(Options& options, std::size_t width = 80);

#endif  // LUM_BACKEND_OPTIONS_H
