// The option table of lumcurl.

#include "Options.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <CLI/CLI.hpp>

#include <climits>
#include <cstring>

#include "HelpFormatter.h"
#include "ManPage.h"

namespace {

constexpr char kAbout[] =
    "Requests, downloads and uploads over libLumCurlHttp. Data goes to standard output, everything "
    "else to standard error.";

constexpr char kHttp[] = "HTTP";
constexpr char kService[] = "Service back end";
constexpr char kUploads[] = "Uploads to object storage";
constexpr char kCentre[] = "Configuration centre";
constexpr char kTool[] = "Tool";

constexpr char kTlsOptions[] = "TLS";
constexpr char kRouteOptions[] = "Route";
constexpr char kSigningOptions[] = "Signature";

// What the notes of several commands say.
constexpr char kUnverified[] = "Nothing about an https server is ever verified. ";
constexpr char kReplyNote[] =
    "The server's reply to an upload is written to standard output by the library itself, "
    "whatever its status. ";

bool IsBlankOrControl(unsigned char c) {
  return c <= ' ' || c == 0x7F;
}

bool HoldsAny(const std::string& text, const char* characters) {
  return text.find_first_of(characters) != std::string::npos;
}

bool HoldsBlankOrControl(const std::string& text) {
  for (const char c : text) {
    if (IsBlankOrControl(static_cast<unsigned char>(c))) {
      return true;
    }
  }
  return false;
}

// --- Checks: "" or what is wrong ---

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

// The library adds the query itself.
std::string CheckUrlWithoutQuery(const std::string& url) {
  return HoldsAny(url, "?#") ? "'" + url + "' must have no query and no fragment" : CheckUrl(url);
}

// Goes into a query as it stands.
std::string CheckQueryValue(const std::string& text) {
  return HoldsBlankOrControl(text) || HoldsAny(text, "&#")
             ? "'" + text + "' holds a character that must be percent-encoded: it is sent as given"
             : std::string();
}

// Goes into a path as it stands.
std::string CheckPathPart(const std::string& text) {
  if (text.empty()) {
    return "the value is empty";
  }
  return HoldsBlankOrControl(text) || HoldsAny(text, "/?#")
             ? "'" + text + "' holds a character that must be percent-encoded: it is sent as given"
             : std::string();
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
  for (const char c : text) {
    if (c == '\r' || c == '\n' || c == '\0') {
      return "the value holds a line break";
    }
  }
  return {};
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
  bool right = text.size() == 17;
  for (std::size_t i = 0; right && i < text.size(); ++i) {
    right = i % 3 == 2 ? text[i] == ':' || text[i] == '-'
                       : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
  }
  return right ? std::string() : "'" + text + "' is no MAC address such as 02:00:5e:10:00:01";
}

// --- Groups of options that several commands have ---

CLI::App* AddCommand(CLI::App& app, Options& options, const char* name, const char* group,
                     const char* about, const std::string& footer) {
  CLI::App* command = app.add_subcommand(name, about)->group(group);
  command->set_help_flag("-h,--help", "Print this help and exit");
  command->footer(footer);
  command->add_flag("-v,--verbose", options.verbose,
                    "Show the head of the exchange, secrets hidden, and what the library logs");
  command->add_flag("-q,--quiet", options.quiet, "No progress and no warnings; errors are printed");
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

// A request document may hold a password: it never comes from the command line.
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

// Get and Post of the general client: certificates and switch belong together.
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

// The settings that every request of the service client reads.
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

// Those, and the settings that uploads alone read.
void AddUploadSettings(CLI::App* command, Options& options) {
  AddServiceSettings(command, options);
  command
      ->add_option("--pin-ip", options.pinIp,
                   "Connect to this address in place of what the URL's host resolves to")
      ->type_name("ADDR")
      ->check(CheckAddress)
      ->group(kRouteOptions);
  command
      ->add_option("--limit-rate", options.limitRate,
                   "Highest speed in bytes per second; suffixes like 500K and 2M are understood")
      ->type_name("RATE")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(1, INT_MAX))
      ->group(kRouteOptions);
}

// How a signed upload gets its Authorization and Date. Returns the options that ask for it.
std::vector<CLI::Option*> AddSignature(CLI::App* command, Options& options) {
  auto* date = command
                   ->add_option("--date", options.date,
                                "The Date value to send and sign (default with --sign-key-file: "
                                "now)")
                   ->type_name("DATE")
                   ->check(CheckLine);
  auto* sign = command
                   ->add_option("--sign-key-file", options.signKeyFile,
                                "Sign the upload with the key in this file: Authorization is "
                                "\"LUM \" and the base64 of the HMAC-SHA1 of method, date and "
                                "path, one a line")
                   ->type_name("FILE");
  auto* ready = command
                    ->add_option("--authorisation-file", options.authorisationFile,
                                 "File that holds a ready-made Authorization value; needs --date")
                    ->type_name("FILE")
                    ->needs(date)
                    ->excludes(sign);
  auto* token = command
                    ->add_option("--security-token-file", options.securityTokenFile,
                                 "File that holds the x-zun-security-token value of a signed "
                                 "upload")
                    ->type_name("FILE");
  for (auto* option : {date, sign, ready, token}) {
    option->group(kSigningOptions);
  }
  return {date, sign, ready, token};
}

void AddTimeout(CLI::App* command, Options& options, const std::string& help) {
  command->add_option("--timeout", options.timeout, help)
      ->type_name("SECONDS")
      ->check(CLI::Range(0, INT_MAX));
}

CLI::App* AddUpload(CLI::App& app, Options& options, const char* name, const char* about,
                    const char* operand, const char* operandHelp, const std::string& footer) {
  CLI::App* command = AddCommand(app, options, name, kUploads, about, footer);
  AddUrl(command, options);
  command->add_option(operand, options.path, operandHelp)->type_name("")->required();
  return command;
}

void AddOverwrite(CLI::App* command, Options& options) {
  command->add_flag("--overwrite", options.overwrite,
                    "Replace, and in the end remove, a file that has the archive's name");
}

// --- The commands ---

void AddHttpCommands(CLI::App& app, Options& options) {
  auto* get = AddCommand(
      app, options, "get", kHttp, "GET a JSON document and print it",
      "The document of any status is printed, indented; the exit status tells 4xx and 5xx apart. "
      "An answer that is not JSON fails with 1, whatever its status: the library does not hand "
      "that on. IPv4 only; 5 seconds; redirects are not followed. Without --ssl nothing about an "
      "https server is verified.\n\n"
      "Example:\n"
      "  lumcurl get --ssl --cacert ca.pem --cert me.pem --key me.key \\\n"
      "      --pass-file me.pass https://127.0.0.1:8443/status");
  AddUrl(get, options);
  AddHeader(get, options,
            "The one header line to send in place of 'Content-Type: application/json' and "
            "'charsets: utf-8', or @FILE to read it from a file");
  AddSsl(get, options);

  auto* post = AddCommand(
      app, options, "post", kHttp, "POST a JSON text and print the answer",
      "The body is sent byte for byte and should be JSON. A line given with -H replaces the "
      "content type as well: libcurl then announces a form. Answer and exit status are as with "
      "get. IPv4 only; 5 seconds.\n\n"
      "Example:\n"
      "  echo '{\"state\": \"on\"}' | lumcurl post --data-file - http://127.0.0.1:8080/echo");
  AddUrl(post, options);
  AddBody(post, options, "The body");
  AddHeader(post, options,
            "The one header line to send in place of 'Content-Type: application/json' and "
            "'charsets: utf-8', or @FILE to read it from a file");
  AddSsl(post, options);

  auto* download = AddCommand(
      app, options, "download", kHttp, "Download a URL into a file",
      "The HTTP status is not visible: an error page, such as that of a 404, is saved like any "
      "other download and the exit status is 0. What a download that fails had received stays in "
      "the file. 60 seconds. Nothing about an https server is verified, no client certificate is "
      "offered and no header line of your own is sent.\n\n"
      "Example:\n"
      "  lumcurl download http://127.0.0.1:8080/files/map.bin /tmp/map.bin");
  AddUrl(download, options);
  download->add_option("PATH", options.path, "File to write; what it held is replaced")
      ->type_name("")
      ->required();
  // Known from the other commands: better a reason than "not expected".
  for (const char* name : {"--ssl", "--cacert", "--cert", "--key", "--pass-file", "-H,--header"}) {
    download
        ->add_option_function<std::string>(
            name,
            [](const std::string&) {
              throw CLI::ValidationError(
                  "download verifies nothing, offers no client certificate and sends no header "
                  "line: --ssl, --cacert, --cert, --key, --pass-file and -H are for get and post");
            })
        ->group("")
        ->expected(0, 1);
  }
}

void AddServiceCommands(CLI::App& app, Options& options) {
  auto* token =
      AddCommand(app, options, "token", kService, "Ask for an access token",
                 std::string("Prints the answer, whose members are the back end's own. "
                             "POST; 5 seconds. ") +
                     kUnverified +
                     "\n\nExample:\n"
                     "  lumcurl token --data-file login.json http://127.0.0.1:8080/token");
  AddUrl(token, options);
  AddRequestDocument(token, options);
  AddServiceSettings(token, options);

  auto* refresh =
      AddCommand(app, options, "refresh-token", kService, "Renew an access token",
                 std::string("Prints the answer. PUT; 4 seconds. ") + kUnverified +
                     "\n\nExample:\n"
                     "  echo '{}' | lumcurl refresh-token --token-file token --data-file - \\\n"
                     "      http://127.0.0.1:8080/token");
  AddUrl(refresh, options);
  AddRequestDocument(refresh, options);
  AddToken(refresh, options);
  AddServiceSettings(refresh, options);

  auto* report = AddCommand(
      app, options, "report", kService, "Report a JSON document",
      std::string("The document is sent indented; the statuses 200 and 204 count as done. With "
                  "--gzip it is compressed, and its member accessId names the sender unless "
                  "--access-id does. The answer to a report that failed is shown on standard "
                  "error. ") +
          kUnverified +
          "\n\nExample:\n"
          "  lumcurl report --gzip --access-id robot-7 --topic battery --token-file token \\\n"
          "      --data-file report.json http://127.0.0.1:8080/report");
  AddUrl(report, options);
  AddBody(report, options, "The JSON document");
  AddToken(report, options);
  auto* gzip = report->add_flag("--gzip", options.gzip,
                                "Compress the report; its time limit is then 4 seconds");
  report
      ->add_option("--topic", options.topic, "Add this text to the document, as member topic_name")
      ->type_name("NAME");
  report->add_option("--access-id", options.accessId, "Sender of a compressed report")
      ->type_name("ID")
      ->check(CheckLine)
      ->needs(gzip);
  AddTimeout(report, options, "Time limit of an uncompressed report; 0: none (default: 5)");
  report->get_option("--timeout")->excludes(gzip);
  AddServiceSettings(report, options);

  auto* address = AddCommand(
      app, options, "log-address", kService, "Ask where a log file is to be put",
      std::string("GET of URL?access_id=ID&file_name=NAME, both values as given; prints the "
                  "answer. The library does not hand on the status of an answer that is refused: "
                  "the exit status is then 1. 4 seconds. ") +
          kUnverified +
          "\n\nExample:\n"
          "  lumcurl log-address --access-id robot-7 --file-name today.tar.gz \\\n"
          "      --token-file token http://127.0.0.1:8080/log-address");
  address->add_option("URL", options.url, "http:// or https:// URL without a query")
      ->type_name("")
      ->required()
      ->check(CheckUrlWithoutQuery);
  address->add_option("--access-id", options.accessId, "Whose log it is")
      ->type_name("ID")
      ->required()
      ->check(CheckQueryValue);
  address->add_option("--file-name", options.fileName, "Name of the log file")
      ->type_name("NAME")
      ->required()
      ->check(CheckQueryValue);
  AddToken(address, options);
  AddServiceSettings(address, options);

  auto* get = AddCommand(app, options, "service-get", kService,
                         "GET a JSON document with header lines of your own",
                         std::string("No header line is added to yours; only the status 200 counts "
                                     "as done. 4 seconds. ") +
                             kUnverified +
                             "\n\nExample:\n"
                             "  lumcurl service-get -H 'Accept: application/json' -H @auth.txt \\\n"
                             "      http://127.0.0.1:8080/echo");
  AddUrl(get, options);
  AddHeader(get, options, "A header line to send, or @FILE to read lines from a file; repeatable");
  AddServiceSettings(get, options);

  auto* post = AddCommand(
      app, options, "service-post", kService, "POST a body with header lines of your own",
      std::string("The body is sent as it stands and no header line is added to yours; only the "
                  "status 200 counts as done. 5 seconds. ") +
          kUnverified +
          "\n\nExample:\n"
          "  lumcurl service-post -H 'Content-Type: application/json' -d '{}' \\\n"
          "      http://127.0.0.1:8080/echo");
  AddUrl(post, options);
  AddBody(post, options, "The body");
  AddHeader(post, options, "A header line to send, or @FILE to read lines from a file; repeatable");
  AddServiceSettings(post, options);
}

void AddUploadCommands(CLI::App& app, Options& options) {
  auto* log = AddUpload(
      app, options, "upload-log", "PUT a log archive", "FILE", "File to send",
      std::string("Three forms: 'Content-Type: application/zip' alone, your own header lines (-H), "
                  "or a signature without a content type. Only the status 200 counts as done. ") +
          kReplyNote +
          "With -H or --timeout the library does not hand on the status of an answer that is "
          "refused: the exit status is then 1. A signed upload may take 60 seconds. " +
          kUnverified +
          "\n\nExample:\n"
          "  lumcurl upload-log --sign-key-file storage.key \\\n"
          "      http://127.0.0.1:8080/objects/today.zip today.zip");
  auto* headers =
      AddHeader(log, options,
                "A header line to send in place of the content type, or @FILE to read lines from "
                "a file; repeatable");
  AddTimeout(log, options, "Time limit; 0: none (default: 60)");
  for (auto* option : AddSignature(log, options)) {
    option->excludes(headers)->excludes(log->get_option("--timeout"));
  }
  AddUploadSettings(log, options);

  auto* video = AddUpload(
      app, options, "upload-video", "PUT a video file", "FILE", "File to send",
      std::string("Sent as 'Content-Type: video/mp4'. Only the status 200 counts as done; the "
                  "library does not hand on any other, so that the exit status is then 1. ") +
          kReplyNote + kUnverified +
          "\n\nExample:\n"
          "  lumcurl upload-video --limit-rate 2M http://127.0.0.1:8080/objects/a.mp4 a.mp4");
  AddTimeout(video, options, "Time limit; 0: none (default: 60)");
  AddUploadSettings(video, options);

  const std::string archiveNote = std::string("Only the status 200 counts as done. ") + kReplyNote +
                                  "60 seconds. " + kUnverified;
  auto* file = AddUpload(
      app, options, "upload-file", "Pack one file, PUT the archive, remove it", "FILE",
      "File to pack; it stays",
      "The archive is FILE.tar.gz, beside the file; it is removed after the upload, also after "
      "one that failed. " +
          archiveNote +
          "\n\nExample:\n"
          "  lumcurl upload-file http://127.0.0.1:8080/objects/a.tar.gz /var/log/a.log");
  AddOverwrite(file, options);
  AddSignature(file, options);
  AddUploadSettings(file, options);

  auto* directory = AddUpload(
      app, options, "upload-dir", "Pack a directory, PUT the archive, remove it", "DIR",
      "Directory to pack; it stays",
      "The archive is DIR.tar.gz, beside the directory (DIR/ makes DIR/.tar.gz, inside it); it is "
      "removed after the upload but kept after one that failed. " +
          archiveNote +
          "\n\nExample:\n"
          "  lumcurl upload-dir --sign-key-file storage.key \\\n"
          "      http://127.0.0.1:8080/objects/logs.tar.gz /var/log/robot");
  AddOverwrite(directory, options);
  AddSignature(directory, options);
  AddUploadSettings(directory, options);

  auto* group = AddCommand(
      app, options, "upload-group", kUploads, "Pack several files, PUT the archive, remove it",
      "The files are stored by their base names, which must differ. The archive is removed after "
      "the upload, also after one that failed. " +
          archiveNote +
          "\n\nExample:\n"
          "  lumcurl upload-group http://127.0.0.1:8080/objects/g.tar.gz a.log b.log");
  AddUrl(group, options);
  group->add_option("FILE", options.files, "Files to pack; they stay")
      ->type_name("")
      ->required()
      ->check(CheckLine);
  group
      ->add_option("--archive", options.archive,
                   "Make the archive as BASE.tar.gz (default: in a directory for temporary files)")
      ->type_name("BASE");
  AddOverwrite(group, options);
  AddSignature(group, options);
  AddUploadSettings(group, options);
}

void AddApolloCommand(CLI::App& app, Options& options) {
  auto* apollo = AddCommand(
      app, options, "apollo", kCentre, "Print one namespace of an Apollo configuration centre",
      "The answer is printed as it came unless --key or --env-file is given. Always https, IPv4 "
      "only; 5 seconds. The server's certificate is not verified. In names for --env-file every "
      "character that no variable may have becomes an underscore; values are quoted for a POSIX "
      "shell.\n\n"
      "Example:\n"
      "  lumcurl apollo --env-file 127.0.0.1:8443 robot application > robot.env");
  apollo->add_option("SERVER", options.server, "HOST or HOST:PORT, IPv6 in brackets")
      ->type_name("")
      ->required()
      ->check(CheckServer);
  apollo->add_option("APP", options.appId, "Id of the application")
      ->type_name("")
      ->required()
      ->check(CheckPathPart);
  apollo->add_option("NAMESPACE", options.namespaceName, "Namespace to print")
      ->type_name("")
      ->required()
      ->check(CheckPathPart);
  apollo->add_option("--cluster", options.cluster, "Cluster (default: default)")
      ->type_name("NAME")
      ->check(CheckPathPart);
  auto* key = apollo->add_option("--key", options.property, "Print the value of this property")
                  ->type_name("NAME");
  apollo
      ->add_flag("--env-file", options.envFile,
                 "Print the properties as lines NAME='value' for a shell to read")
      ->excludes(key);
}

}  // namespace

std::unique_ptr<CLI::App> MakeParser(Options& options) {
  auto app = std::make_unique<CLI::App>(kAbout, "lumcurl");
  app->formatter(std::make_shared<HelpFormatter>());
  app->get_formatter()->label("Positionals", "Operands");
  app->set_help_flag("-h,--help", "Print this help and exit");
  app->set_version_flag(
      "--version",
      [] {
        return std::string("lumcurl " LUM_VERSION "\nlibLumCurlHttp " LUM_VERSION "\n") +
               curl_version();
      },
      "Print the versions of the tool, the library and libcurl, and exit");
  app->require_subcommand(1);
  app->footer(
      "Secrets (pass phrases, tokens, keys, signatures) come from files or the environment. Each "
      "command has its own --help.\n\n"
      "Example:\n"
      "  lumcurl get http://127.0.0.1:8080/status");

  AddHttpCommands(*app, options);
  AddServiceCommands(*app, options);
  AddUploadCommands(*app, options);
  AddApolloCommand(*app, options);

  auto* completion = AddCommand(*app, options, "completion", kTool, "Print a shell completion",
                                "Example:\n"
                                "  lumcurl completion bash > ~/.local/share/bash-completion/"
                                "completions/lumcurl");
  completion->add_option("SHELL", options.shell, "The shell: bash")
      ->type_name("")
      ->required()
      ->check(CLI::IsMember({"bash"}));

  // Hidden: the build makes the man page with it.
  CLI::App* table = app.get();
  app->add_flag_callback("--help-man", [table] { throw CLI::CallForVersion(ManPage(*table), 0); })
      ->group("");
  return app;
}

const std::vector<ManualEntry>& ExitStatuses() {
  static const std::vector<ManualEntry> entries = {
      {"0", "Done."},
      {"1", "Anything that has no number of its own, an answer that is not JSON among it."},
      {"2", "The command line is wrong, or asks to send what cannot be sent."},
      {"4", "The server answered with a 4xx status."},
      {"5", "The server answered with a 5xx status."},
      {"6", "No connection, or one that broke."},
      {"7", "The time limit of the operation has passed."},
      {"8", "TLS: certificates, keys, pass phrases, handshakes."},
      {"9", "A local file could not be read or written."},
      {"130", "Interrupted; archives that were being made are removed."},
  };
  return entries;
}

const std::vector<ManualEntry>& EnvironmentVariables() {
  static const std::vector<ManualEntry> entries = {
      {kTokenVariable, "The access token, where no --token-file is given."},
      {kKeyPassVariable, "The pass phrase of the private key, where no --pass-file is given."},
      {"TMPDIR", "Directory for the archive of upload-group (default: /tmp)."},
  };
  return entries;
}
