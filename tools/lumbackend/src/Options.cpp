// The option table of lumbackend.
#include "Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "OptionTexts.h"
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

  // CLI11 2.6 would wrap description and footer itself, whatever lines they have.
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override {
    return Wrapped(app->get_description() + "\n" + make_usage(app, std::move(name)) +
                       make_groups(app, mode) + "\n" + app->get_footer() + "\n",
                   m_width);
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
  if (text.empty() || *end != '\0' || !(value >= 0 && value <= 1)) {
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

  app->add_option("--root", options.root)->required();
  app->add_option("--port", options.port)->check(CLI::Range(0, 65535));
  app->add_option("--tls-port", options.tlsPort)->check(CLI::Range(0, 65535));
  app->add_option("--bind", options.bind)->check(CheckAddress);
  app->add_option("--max-body", options.maxBody)
      ->check(CheckUnsigned)
      ->transform(CLI::AsSizeValue(false));
  app->add_option("--keep", options.keep)->check(CheckUnsigned);

  app->add_option("--tls-dir", options.tlsDir);
  auto* cert = app->add_option("--cert", options.cert);
  cert->needs(app->add_option("--key", options.key)->needs(cert));
  app->add_option("--client-ca", options.clientCa);

  app->add_option("--token-lifetime", options.tokenLifetime)->check(CLI::Range(0, 1'000'000'000));
  app->add_flag("--open", options.open);
  app->add_option("--host", options.hosts)->allow_extra_args(false);
  app->add_option("--sign-key-file", options.signKeyFile);

  app->add_option("--fail-rate", options.failRate)->check(CheckShare);
  app->add_option("--seed", options.seed)->check(CheckUnsigned);
  app->add_option("--status", options.status)->check(CLI::Range(200, 599));
  app->add_option("--delay", options.delay)->check(CLI::Range(0u, kLongestDelay));
  app->add_option("--cut-after", options.cutAfter)
      ->check(CheckUnsigned)
      ->transform(CLI::AsSizeValue(false));

  for (const OptionText& option : kOptionTexts) {
    app->get_option(option.name)
        ->type_name(option.value)
        ->group(option.group)
        ->description(option.text);
  }
  return app;
}
