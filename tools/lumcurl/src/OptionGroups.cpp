// Options that several commands have, and what values they accept.

#include "OptionGroups.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <map>
#include <regex>

#include "Help.h"

namespace {

constexpr char kTlsOptions[] = "TLS";

struct Certificate {
  CLI::Option* caCert;
  CLI::Option* cert;
  CLI::Option* key;
};

// A client certificate and what belongs to it; `caHelp` says what the authorities are for.
Certificate AddCertificate(CLI::App* command, Options& options, const char* caHelp) {
  auto* caCert = AddValue(command, "--cacert", options.caCert, "FILE", caHelp);
  auto* cert = AddValue(command, "--cert", options.cert, "FILE", "Client certificate, PEM");
  auto* key = AddValue(command, "--key", options.key, "FILE", "Its private key, PEM");
  auto* pass = AddValue(command, "--pass-file", options.passFile, "FILE",
                        std::string("File that holds the key's pass phrase; without it ") +
                            kKeyPassVariable + " in the environment");
  pass->needs(key);
  for (auto* option : {caCert, cert, key, pass}) {
    option->group(kTlsOptions);
  }
  return {caCert, cert, key};
}

// libcurl takes no longer one (in milliseconds, in 32 bits): it would set none.
constexpr std::uint64_t kLongestTimeLimit = INT_MAX / 1000;

bool HoldsAny(const std::string& text, const char* characters) {
  return text.find_first_of(characters) != std::string::npos;
}

bool HoldsBlankOrControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char c) { return c <= ' ' || c == 0x7F; });
}

// For what goes into a request as it stands.
std::string CheckReserved(const std::string& text, const char* reserved) {
  return HoldsBlankOrControl(text) || HoldsAny(text, reserved)
             ? "'" + text + "' holds a character that must be percent-encoded: it is sent as given"
             : std::string();
}

}  // namespace

CLI::App* AddCommand(CLI::App& app, Options& options, const char* name, const char* group,
                     const char* about, const std::string& notes, const char* example) {
  CLI::App* command = app.add_subcommand(name, about)->group(group);
  command->set_help_flag("-h,--help", "Print this help and exit");
  command->footer(notes + kExampleMark + example);
  command->add_flag("-v,--verbose", options.verbose,
                    "Show the head of the request as far as the library sets it, secrets hidden, "
                    "the status, and what the library logs");
  command->add_flag("-q,--quiet", options.quiet, "No progress and no warnings; errors are printed");
  AddValue(
      command, "--color", options.colour, kColourValue,
      "Colours in JSON and in messages: auto (on a terminal, unless NO_COLOR is set or TERM is "
      "dumb), always or never")
      ->check(CLI::IsMember(kColours));
  return command;
}

CLI::App* AddServiceCommand(CLI::App& app, Options& options, const char* name, const char* group,
                            const char* about, const std::string& notes, const char* example) {
  return AddCommand(app, options, name, group, about,
                    notes + "Nothing about an https server is ever verified. ", example);
}

void AddUrl(CLI::App* command, Options& options) {
  AddOperand(command, "URL", options.url, "http:// or https:// URL, sent as given")
      ->check(CheckUrl);
}

CLI::Option* AddHeader(CLI::App* command, Options& options, const std::string& help) {
  return AddValue(command, "-H,--header", options.headers, "LINE", help)->allow_extra_args(false);
}

void AddBody(CLI::App* command, Options& options, const std::string& what) {
  auto* data = AddValue(command, "-d,--data", options.data, "TEXT", what + ", as it stands");
  AddValue(command, "--data-file", options.dataFile, "FILE",
           what + " from a file; - is standard input")
      ->excludes(data);
}

void AddRequestDocument(CLI::App* command, Options& options) {
  AddValue(command, "--data-file", options.dataFile, "FILE",
           "The request, a JSON document, from a file; - is standard input")
      ->required();
}

void AddToken(CLI::App* command, Options& options) {
  AddValue(command, "--token-file", options.tokenFile, "FILE",
           std::string("File that holds the access token; without it ") + kTokenVariable +
               " in the environment");
}

void AddSsl(CLI::App* command, Options& options) {
  auto* ssl = command->add_flag("--ssl", options.ssl,
                                "Verify the server's certificate and offer one to it; needs "
                                "--cacert, --cert and --key");
  ssl->group(kTlsOptions);
  const Certificate files = AddCertificate(
      command, options,
      "PEM file of the authorities that the server's certificate must chain to; its host name is "
      "not compared");
  for (auto* option : {files.caCert, files.cert, files.key}) {
    option->needs(ssl);
    ssl->needs(option);
  }
}

void AddServiceSettings(CLI::App* command, Options& options) {
  const Certificate files = AddCertificate(
      command, options,
      "PEM file of authorities, handed on with the certificate; the server is not verified against "
      "it");
  files.cert->needs(files.key);
  files.key->needs(files.cert);
  files.caCert->needs(files.cert);
  auto* name = AddValue(command, "--interface", options.interfaceName, "NAME",
                        "Network interface to leave from, by name");
  name->check(CheckPathPart)->group(kRouteOptions);
  AddValue(command, "--mac", options.mac, "MAC",
           "The same by MAC address; one that no interface has binds to none")
      ->check(CheckMac)
      ->excludes(name)
      ->group(kRouteOptions);
}

void AddTimeout(CLI::App* command, Options& options, const std::string& help) {
  AddValue(command, "--timeout", options.timeout, "SECONDS", help)->check(CheckSeconds);
}

std::string CheckUrl(const std::string& url) {
  if (url.empty()) {
    return "the URL is empty";
  }
  const std::string::size_type scheme =
      url.rfind("http://", 0) == 0 ? 7 : (url.rfind("https://", 0) == 0 ? 8 : 0);
  if (scheme == 0) {
    return "'" + url + "' must begin with http:// or https://";
  }
  if (url.size() == scheme || HoldsAny(url.substr(scheme, 1), "/?#")) {
    return "'" + url + "' names no host";
  }
  if (HoldsBlankOrControl(url)) {
    return "'" + url + "' holds a blank or a control character; percent-encode it";
  }
  return {};
}

std::string CheckUrlWithoutQuery(const std::string& url) {
  return HoldsAny(url, "?#") ? "'" + url + "' must have no query and no fragment" : CheckUrl(url);
}

std::string CheckQueryValue(const std::string& text) {
  return CheckReserved(text, "&#");
}

std::string CheckPathPart(const std::string& text) {
  return text.empty() ? "the value is empty" : CheckReserved(text, "/?#");
}

std::string CheckServer(const std::string& server) {
  if (server.find("://") != std::string::npos) {
    return "'" + server + "' must be a host without a scheme (https is always used)";
  }
  if (server.empty() || HoldsBlankOrControl(server) || HoldsAny(server, "/?#@")) {
    return "'" + server + "' is no HOST or HOST:PORT";
  }
  return {};
}

std::string CheckLine(const std::string& text) {
  const bool isOneLine = text.find_first_of(std::string("\r\n\0", 3)) == std::string::npos;
  return isOneLine ? "" : "the value holds a line break";
}

std::string CheckAddress(const std::string& text) {
  unsigned char address[sizeof(in6_addr)];
  if (inet_pton(AF_INET, text.c_str(), address) == 1 ||
      inet_pton(AF_INET6, text.c_str(), address) == 1) {
    return {};
  }
  return "'" + text + "' is no numeric IPv4 or IPv6 address";
}

std::string CheckMac(const std::string& text) {
  static const std::regex kMac("([0-9A-Fa-f]{2}[:-]){5}[0-9A-Fa-f]{2}");
  return std::regex_match(text, kMac)
             ? std::string()
             : "'" + text + "' is no MAC address such as 02:00:5e:10:00:01";
}

std::string CheckVariablePrefix(const std::string& text) {
  static const std::regex kBeginning("[A-Za-z_][A-Za-z0-9_]*");
  return std::regex_match(text, kBeginning) ? std::string()
                                            : "'" + text + "' cannot begin the name of a variable";
}

std::string CheckSeconds(const std::string& text) {
  static const std::regex kSeconds("[0-9]{1,10}");
  return std::regex_match(text, kSeconds) && std::stoull(text) <= kLongestTimeLimit
             ? std::string()
             : "'" + text + "' is no number of seconds from 0 to " +
                   std::to_string(kLongestTimeLimit);
}

std::string ToBytesPerSecond(std::string& text) {
  static const std::regex kRate("([0-9]{1,10})([kKmMgG]?)");
  static const std::map<std::string, unsigned int> kShifts = {
      {"", 0}, {"k", 10}, {"K", 10}, {"m", 20}, {"M", 20}, {"g", 30}, {"G", 30}};
  std::smatch parts;
  if (!std::regex_match(text, parts, kRate)) {
    return "'" + text + "' is no rate such as 80000, 500K or 2M";
  }
  const std::uint64_t rate = std::stoull(parts[1]) << kShifts.at(parts[2]);
  if (rate == 0 || rate > INT_MAX) {
    return "'" + text + "' is not between 1 and " + std::to_string(INT_MAX) + " bytes per second";
  }
  text = std::to_string(rate);
  return {};
}
