// The command line of lumcurl.

#ifndef LUM_LUMCURL_OPTIONS_H
#define LUM_LUMCURL_OPTIONS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// Everything that the command line settles. A plain record: written once, then only read. Commands
// share the fields; only one of them runs.
struct Options {
  std::string command;

  // Switches
  bool verbose = false;
  bool quiet = false;
  bool ssl = false;
  bool gzip = false;
  bool overwrite = false;
  bool envFile = false;

  std::string colour = "auto";  // one of kColours

  int limitRate = -1;                   // bytes per second; -1: no limit
  std::optional<unsigned int> timeout;  // seconds; 0: no limit

  std::string url;
  std::string path;                  // what is written (download) or sent (uploads)
  std::vector<std::string> headers;  // lines, or @FILE
  std::optional<std::string> data;   // the body as an argument
  std::string dataFile;              // or the file that holds it; "-": standard input

  // TLS
  std::string caCert;
  std::string cert;
  std::string key;
  std::string passFile;

  // Service client
  std::string interfaceName;
  std::string mac;
  std::string pinIp;
  std::string tokenFile;
  std::string topic;
  std::optional<std::string> accessId;
  std::string fileName;

  // Uploads
  std::vector<std::string> files;
  std::string archive;  // base of a group's archive; empty: a temporary one
  std::string date;
  std::string signKeyFile;
  std::string authorisationFile;
  std::string securityTokenFile;

  // Apollo
  std::string server;
  std::string appId;
  std::string cluster;
  std::string namespaceName;
  std::optional<std::string> property;
  std::string prefix;  // of the variables' names

  std::string shell;  // to complete for
};

// What --color and completion take.
inline const std::vector<std::string> kColours = {"auto", "always", "never"};
inline const std::vector<std::string> kShells = {"bash", "zsh", "fish"};

// How the value of --color is called.
constexpr char kColourValue[] = "WHEN";

// The environment variables that hold secrets.
constexpr char kTokenVariable[] = "LUMCURL_TOKEN";
constexpr char kKeyPassVariable[] = "LUMCURL_KEY_PASS";

// The parser that fills `options`, which must outlive it. Its Parse throws CLI::ParseError as CLI11
// documents it. --help, the completion and the man page are made from this one table.
std::unique_ptr<CLI::App> MakeParser(Options& options);

// The completion script for one of kShells; it needs nothing but that shell.
std::string Completion(const std::string& shell, const CLI::App& parser);

// The command of that name; null when there is none.
const CLI::App* CommandNamed(const CLI::App& parser, const std::string& name);

// What is wrong with the words of a command line before any is read as a value, "" when nothing is:
// an option that its command does not have would hand its value on as an operand.
std::string OptionProblem(const CLI::App& parser, const std::vector<std::string>& words);

// The lines of the help and the man page that no option carries.
struct ManualEntry {
  const char* name;
  const char* text;
};
extern const std::vector<ManualEntry> kExitStatuses;
extern const std::vector<ManualEntry> kEnvironmentVariables;

#endif  // LUM_LUMCURL_OPTIONS_H
