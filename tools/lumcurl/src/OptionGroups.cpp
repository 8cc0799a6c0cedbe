// Options that several commands have.

#include "OptionGroups.h"

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
