// The option table of lumbackend.
#include "Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "Paths.h"

namespace {

constexpr unsigned kLongestDelay = 600'000;  // milliseconds; more is a typing error

constexpr char kAbout[] =
    "Local back end for development and tests: JSON echo, files, tokens, reports, log addresses, "
    "object storage and an Apollo configuration centre, over HTTP and HTTPS. The ports in use are "
    "printed on standard output; http://HOST:PORT/ shows what comes in.";

constexpr char kExample[] =
    "Example: HTTP and HTTPS on free ports, client certificates required, one request in five "
    "fails\n"
    "  lumbackend --root /tmp/backend --port 0 --tls-port 0 --tls-dir /tmp/tls \\\n"
    "             --client-ca /tmp/tls/ca.pem --fail-rate 0.2 --seed 7";

// What stands behind two blanks or more of a line is a column: it goes on below itself.
std::string Wrapped(const std::string& text, std::size_t width) {
  std::istringstream lines(text);
  std::string wrapped;
  for (std::string line; std::getline(lines, line); wrapped += line + "\n") {
    const std::size_t start = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t gap = line.find("  ", start);
    const std::size_t column = gap == std::string::npos ? start : line.find_first_not_of(' ', gap);
    while (line.size() > width) {
      std::size_t blank = line.rfind(' ', width);
      if (blank == std::string::npos || blank <= column) {
        blank = line.find(' ', width);
      }
      if (blank == std::string::npos) {
        break;
      }
      wrapped += line.substr(0, blank) + "\n";
      line = std::string(column, ' ') + line.substr(blank + 1);
    }
  }
  return wrapped;
}

class WrappedHelp final : public CLI::Formatter {
 public:
  explicit WrappedHelp(std::size_t width) : m_width(width) { column_width(28); }

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override {
    return Wrapped(CLI::Formatter::make_help(app, std::move(name), mode), m_width);
  }

 private:
  const std::size_t m_width;
};

std::string ListOfPaths() {
  std::string list = "Paths:\n";
  for (const Path& path : kPaths) {
    const std::string takes = path.takes;
    list += "  " + std::string(path.method) + std::string(5 - std::strlen(path.method), ' ') +
            path.path + "\n" + std::string(28, ' ') + "  " + (takes.empty() ? "" : takes + ". ") +
            "Answer: " + path.answers + "\n";
  }
  return list;
}

std::string CheckAddress(const std::string& text) {
  boost::system::error_code failure;
  boost::asio::ip::make_address(text, failure);
  return failure ? "'" + text + "' is no numeric IPv4 or IPv6 address" : "";
}

// CLI11 would take -1 for the largest number there is.
std::string CheckUnsigned(const std::string& text) {
  return text.find('-') == std::string::npos ? "" : "'" + text + "' is no number from 0 up";
}

std::string CheckShare(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !std::isfinite(value) || value < 0 || value > 1) {
    return "'" + text + "' is no number from 0 to 1";
  }
  return {};
}

}  // namespace

std::unique_ptr<CLI::App> MakeParser(Options& options, std::size_t width) {
  auto app = std::make_unique<CLI::App>(kAbout, "lumbackend");
  app->set_version_flag("--version", "lumbackend " LUM_VERSION);
  app->footer(ListOfPaths() + "\n" + kExample);
  app->formatter(std::make_shared<WrappedHelp>(width));

  const auto serve = "Serve";
  app->add_option("--root", options.root,
                  "Directory with files/, objects/, configs/ and lumbackend.db; made when missing")
      ->type_name("DIR")
      ->required()
      ->group(serve);
  app->add_option("--port", options.port,
                  "Serve HTTP on this port; 0: the kernel chooses (the default without --tls-port)")
      ->type_name("N")
      ->check(CLI::Range(0, 65535))
      ->group(serve);
  app->add_option("--tls-port", options.tlsPort, "Serve HTTPS on this port; 0: the kernel chooses")
      ->type_name("N")
      ->check(CLI::Range(0, 65535))
      ->group(serve);
  app->add_option("--bind", options.bind, "Address to listen on")
      ->type_name("ADDR")
      ->check(CheckAddress)
      ->capture_default_str()
      ->group(serve);
  app->add_option("--max-body", options.maxBody,
                  "Refuse longer request bodies, unpacked size included, with 413 (default: 64 MiB "
                  "for JSON, no limit for objects); suffixes like 10MB are understood")
      ->type_name("BYTES")
      ->check(CheckUnsigned)
      ->transform(CLI::AsSizeValue(false))
      ->group(serve);

  app->add_option("--keep", options.keep,
                  "Exchanges, and reports, that are kept; older ones give way")
      ->type_name("N")
      ->check(CheckUnsigned)
      ->capture_default_str()
      ->group(serve);

  const auto tls = "TLS";
  app->add_option("--tls-dir", options.tlsDir,
                  "Where self-made TLS material is kept for server and clients (default: ROOT/tls)")
      ->type_name("DIR")
      ->group(tls);
  auto* cert = app->add_option("--cert", options.cert, "Own server certificate chain, PEM")
                   ->type_name("FILE")
                   ->group(tls);
  auto* key = app->add_option("--key", options.key, "Its private key, PEM, not encrypted")
                  ->type_name("FILE")
                  ->group(tls);
  cert->needs(key);
  key->needs(cert);
  app->add_option("--client-ca", options.clientCa,
                  "Require client certificates that these authorities have signed, PEM")
      ->type_name("FILE")
      ->group(tls);

  const auto access = "Access";
  app->add_option("--token-lifetime", options.tokenLifetime, "How long a token is valid")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 1'000'000'000))
      ->capture_default_str()
      ->group(access);
  app->add_flag("--open", options.open, "Ask for no token")->group(access);
  app->add_option("--host", options.hosts,
                  "Answer to this name, too, in Host and Origin; numeric addresses and localhost "
                  "need no leave. May be given again")
      ->type_name("NAME")
      ->allow_extra_args(false)
      ->group(access);
  app->add_option(
         "--sign-key-file", options.signKeyFile,
         "Check Date and Authorization of uploads against the key in this file: \"LUM \" and "
         "the base64 of the HMAC-SHA1 of method, date and path, one a line")
      ->type_name("FILE")
      ->group(access);

  const auto faults = "Misbehave on purpose (the page at / and what it asks for excepted)";
  app->add_option("--fail-rate", options.failRate, "Share of the requests answered 503, 0 to 1")
      ->type_name("P")
      ->check(CheckShare)
      ->group(faults);
  app->add_option("--seed", options.seed, "Seed of the sequence that says which requests fail")
      ->type_name("N")
      ->check(CheckUnsigned)
      ->capture_default_str()
      ->group(faults);
  app->add_option("--status", options.status, "Answer every request with this status, do nothing")
      ->type_name("N")
      ->check(CLI::Range(200, 599))
      ->group(faults);
  app->add_option("--delay", options.delay, "Wait this long before every answer")
      ->type_name("MS")
      ->check(CLI::Range(0u, kLongestDelay))
      ->group(faults);
  app->add_option("--cut-after", options.cutAfter,
                  "Close the connection after this many bytes of an answer, its head included")
      ->type_name("BYTES")
      ->check(CheckUnsigned)
      ->transform(CLI::AsSizeValue(false))
      ->group(faults);
  return app;
}
