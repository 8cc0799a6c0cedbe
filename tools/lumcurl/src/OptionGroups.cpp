// Options that several commands have.

#include "OptionGroups.h"

#include "OptionChecks.h"

namespace {

constexpr char kTlsOptions[] = "TLS";

}  // namespace

CLI::App* AddCommand(CLI::App& app, Options& options, const char* name, const char* group,
                     const char* about, const std::string& footer) {
  CLI::App* command = app.add_subcommand(name, about)->group(group);
  command->set_help_flag("-h,--help", "Print this help and exit");
  command->footer(footer);
  command->add_flag("-v,--verbose", options.verbose,
                    "Show the head of the request as far as the library sets it, secrets hidden, "
                    "the status, and what the library logs");
  command->add_flag("-q,--quiet", options.quiet, "No progress and no warnings; errors are printed");
  command
      ->add_option(
          "--color", options.colour,
          "Colours in JSON and in messages: auto (on a terminal, unless NO_COLOR is set or "
          "TERM is dumb), always or never")
      ->type_name(kColourValue)
      ->check(CLI::IsMember(Colours()));
  return command;
}

void AddUrl(CLI::App* command, Options& options) {
  command->add_option("URL", options.url, "http:// or https:// URL, sent as given")
      ->type_name("")
      ->required()
      ->check(CheckUrl);
}

CLI::Option* AddHeader(CLI::App* command, Options& options, const std::string& help) {
  return command->add_option("-H,--header", options.headers, help)
      ->type_name("LINE")
      ->allow_extra_args(false);
}

void AddBody(CLI::App* command, Options& options, const std::string& what) {
  auto* data =
      command->add_option("-d,--data", options.data, what + ", as it stands")->type_name("TEXT");
  command->add_option("--data-file", options.dataFile, what + " from a file; - is standard input")
      ->type_name("FILE")
      ->excludes(data);
}

void AddRequestDocument(CLI::App* command, Options& options) {
  command
      ->add_option("--data-file", options.dataFile,
                   "The request, a JSON document, from a file; - is standard input")
      ->type_name("FILE")
      ->required();
}

void AddToken(CLI::App* command, Options& options) {
  command
      ->add_option("--token-file", options.tokenFile,
                   std::string("File that holds the access token; without it ") + kTokenVariable +
                       " in the environment")
      ->type_name("FILE");
}

void AddSsl(CLI::App* command, Options& options) {
  auto* ssl = command->add_flag("--ssl", options.ssl,
                                "Verify the server's certificate and offer one to it; needs "
                                "--cacert, --cert and --key");
  auto* caCert = command
                     ->add_option("--cacert", options.caCert,
                                  "PEM file of the authorities that the server's certificate must "
                                  "chain to; its host name is not compared")
                     ->type_name("FILE")
                     ->needs(ssl);
  auto* cert = command->add_option("--cert", options.cert, "Client certificate, PEM")
                   ->type_name("FILE")
                   ->needs(ssl);
  auto* key = command->add_option("--key", options.key, "Its private key, PEM")
                  ->type_name("FILE")
                  ->needs(ssl);
  ssl->needs(caCert)->needs(cert)->needs(key);
  auto* pass = command
                   ->add_option("--pass-file", options.passFile,
                                std::string("File that holds the key's pass phrase; without it ") +
                                    kKeyPassVariable + " in the environment")
                   ->type_name("FILE")
                   ->needs(key);
  for (auto* option : {ssl, caCert, cert, key, pass}) {
    option->group(kTlsOptions);
  }
}

void AddServiceSettings(CLI::App* command, Options& options) {
  auto* cert =
      command->add_option("--cert", options.cert, "Client certificate, PEM")->type_name("FILE");
  auto* key = command->add_option("--key", options.key, "Its private key, PEM")
                  ->type_name("FILE")
                  ->needs(cert);
  cert->needs(key);
  auto* caCert = command
                     ->add_option("--cacert", options.caCert,
                                  "PEM file of authorities, handed on with the certificate; the "
                                  "server is not verified against it")
                     ->type_name("FILE")
                     ->needs(cert);
  auto* pass = command
                   ->add_option("--pass-file", options.passFile,
                                std::string("File that holds the key's pass phrase; without it ") +
                                    kKeyPassVariable + " in the environment")
                   ->type_name("FILE")
                   ->needs(key);
  for (auto* option : {caCert, cert, key, pass}) {
    option->group(kTlsOptions);
  }
  auto* interfaceName = command
                            ->add_option("--interface", options.interfaceName,
                                         "Network interface to leave from, by name")
                            ->type_name("NAME")
                            ->check(CheckPathPart)
                            ->group(kRouteOptions);
  command
      ->add_option("--mac", options.mac,
                   "The same by MAC address; one that no interface has binds to none")
      ->type_name("MAC")
      ->check(CheckMac)
      ->excludes(interfaceName)
      ->group(kRouteOptions);
}

void AddTimeout(CLI::App* command, Options& options, const std::string& help) {
  command->add_option("--timeout", options.timeout, help)
      ->type_name("SECONDS")
      ->check(CheckSeconds);
}
