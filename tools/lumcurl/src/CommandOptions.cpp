// The command line of each command.

#include <CLI/CLI.hpp>

#include "Help.h"
#include "Options.h"
#include "Values.h"

namespace {

// The headings under which --help lists the commands.
constexpr char kHttp[] = "HTTP";
constexpr char kService[] = "Service back end";
constexpr char kUploads[] = "Uploads to object storage";
constexpr char kCentre[] = "Configuration centre";
constexpr char kTool[] = "Tool";

// The headings of options: who is trusted, and by which way a request leaves.
constexpr char kTlsOptions[] = "TLS";
constexpr char kRouteOptions[] = "Route";

// ---- Options that several commands have ----

// An option that takes a value, which help calls `value`.
template <typename T>
CLI::Option* AddValue(CLI::App* command, const char* name, T& target, const char* value,
                      const std::string& help) {
  return command->add_option(name, target, help)->type_name(value);
}

// An operand, which must be given.
template <typename T>
CLI::Option* AddOperand(CLI::App* command, const char* name, T& target, const std::string& help) {
  return command->add_option(name, target, help)->type_name("")->required();
}

// A command with the options that each has.
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

// One of the service client, which verifies no server: the notes end in that.
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

// A request document may hold a password: it never comes from the command line.
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

// TLS of get and post: certificates and switch belong together.
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

// The settings that every request of the service client reads.
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

// ---- get, post, download ----

constexpr char kOneHeader[] =
    "The one header line to send in place of 'Content-Type: application/json' and "
    "'charsets: utf-8', or @FILE to read it from a file";

void AddHttpCommands(CLI::App& app, Options& options) {
  auto* get = AddCommand(
      app, options, "get", kHttp, "GET a JSON document and print it",
      "The document of any status is printed, indented; the exit status tells 4xx and 5xx apart. "
      "An answer that is not JSON fails with 1, whatever its status: the library does not hand "
      "that on. Host names are looked up for IPv4 alone; 5 seconds; redirects are not followed. "
      "Without --ssl nothing about an https server is verified.",
      "  lumcurl get --ssl --cacert ca.pem --cert me.pem --key me.key \\\n"
      "      --pass-file me.pass https://127.0.0.1:8443/echo");
  AddUrl(get, options);
  AddHeader(get, options, kOneHeader);
  AddSsl(get, options);

  auto* post = AddCommand(
      app, options, "post", kHttp, "POST a JSON text and print the answer",
      "The body is sent byte for byte and should be JSON. A line given with -H replaces the "
      "content type as well: libcurl then announces a form. Answer and exit status are as with "
      "get. Host names are looked up for IPv4 alone; 5 seconds.",
      "  echo '{\"state\": \"on\"}' | lumcurl post --data-file - http://127.0.0.1:8080/echo");
  AddUrl(post, options);
  AddBody(post, options, "The body");
  AddHeader(post, options, kOneHeader);
  AddSsl(post, options);

  auto* download = AddCommand(
      app, options, "download", kHttp, "Download a URL into a file",
      "The HTTP status is not visible: an error page, such as that of a 404, is saved like any "
      "other download and the exit status is 0; a warning says when the file looks like one. What "
      "a download that fails had received stays in the file. 60 seconds. Nothing about an https "
      "server is verified, no client certificate is offered and no header line of your own is "
      "sent.",
      "  lumcurl download http://127.0.0.1:8080/files/map.bin /tmp/map.bin");
  AddUrl(download, options);
  AddOperand(download, "PATH", options.path, "File to write; what it held is replaced");
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

// ---- token, refresh-token, report, log-address, service-get, service-post ----

constexpr char kHeaderLines[] =
    "A header line to send, or @FILE to read lines from a file; repeatable";

void AddServiceCommands(CLI::App& app, Options& options) {
  auto* token = AddServiceCommand(
      app, options, "token", kService, "Ask for an access token",
      "Prints the answer, whose members are the back end's own. POST; 5 seconds. ",
      "  lumcurl token --data-file login.json http://127.0.0.1:8080/token");
  AddUrl(token, options);
  AddRequestDocument(token, options);
  AddServiceSettings(token, options);

  auto* refresh =
      AddServiceCommand(app, options, "refresh-token", kService, "Renew an access token",
                        "Prints the answer. PUT; 4 seconds. ",
                        "  echo '{}' | lumcurl refresh-token --token-file token --data-file - \\\n"
                        "      http://127.0.0.1:8080/token");
  AddUrl(refresh, options);
  AddRequestDocument(refresh, options);
  AddToken(refresh, options);
  AddServiceSettings(refresh, options);

  auto* report = AddServiceCommand(
      app, options, "report", kService, "Report a JSON document",
      "The document is sent indented; the statuses 200 and 204 count as done. With --gzip it is "
      "compressed, and its member accessId names the sender unless --access-id does. The answer to "
      "a report that failed is shown on standard error. ",
      "  lumcurl report --gzip --access-id robot-7 --topic battery --token-file token \\\n"
      "      --data-file report.json http://127.0.0.1:8080/report");
  AddUrl(report, options);
  AddBody(report, options, "The JSON document");
  AddToken(report, options);
  auto* gzip = report->add_flag("--gzip", options.gzip,
                                "Compress the report; its time limit is then 4 seconds");
  AddValue(report, "--topic", options.topic, "NAME",
           "Add this text to the document, as member topic_name");
  AddValue(report, "--access-id", options.accessId, "ID", "Sender of a compressed report")
      ->check(CheckLine)
      ->needs(gzip);
  AddTimeout(report, options, "Time limit of an uncompressed report; 0: none (default: 5)");
  report->get_option("--timeout")->excludes(gzip);
  AddServiceSettings(report, options);

  auto* address = AddServiceCommand(
      app, options, "log-address", kService, "Ask where a log file is to be put",
      "GET of URL?access_id=ID&file_name=NAME, both values as given; prints the answer. The "
      "library does not hand on the status of an answer that is refused: the exit status is then "
      "1. 4 seconds. ",
      "  lumcurl log-address --access-id robot-7 --file-name today.tar.gz \\\n"
      "      --token-file token http://127.0.0.1:8080/log-address");
  AddOperand(address, "URL", options.url, "http:// or https:// URL without a query")
      ->check(CheckUrlWithoutQuery);
  AddValue(address, "--access-id", options.accessId, "ID", "Whose log it is")
      ->required()
      ->check(CheckQueryValue);
  AddValue(address, "--file-name", options.fileName, "NAME", "Name of the log file")
      ->required()
      ->check(CheckQueryValue);
  AddToken(address, options);
  AddServiceSettings(address, options);

  auto* get = AddServiceCommand(
      app, options, "service-get", kService, "GET a JSON document with header lines of your own",
      "No header line is added to yours; only the status 200 counts as done. 4 seconds. ",
      "  lumcurl service-get -H 'Accept: application/json' -H @auth.txt \\\n"
      "      http://127.0.0.1:8080/echo");
  AddUrl(get, options);
  AddHeader(get, options, kHeaderLines);
  AddServiceSettings(get, options);

  auto* post = AddServiceCommand(
      app, options, "service-post", kService, "POST a body with header lines of your own",
      "The body is sent as it stands and no header line is added to yours; only the status 200 "
      "counts as done. 5 seconds. ",
      "  lumcurl service-post -H 'Content-Type: application/json' -d '{}' \\\n"
      "      http://127.0.0.1:8080/echo");
  AddUrl(post, options);
  AddBody(post, options, "The body");
  AddHeader(post, options, kHeaderLines);
  AddServiceSettings(post, options);
}

// ---- Uploads ----

constexpr char kSigningOptions[] = "Signature";

constexpr char kReplyNote[] =
    "The server's reply to an upload is written to standard output by the library itself, "
    "whatever its status. ";

// Those, and the settings that uploads alone read.
void AddUploadSettings(CLI::App* command, Options& options) {
  AddServiceSettings(command, options);
  AddValue(command, "--pin-ip", options.pinIp, "ADDR",
           "Connect to this address in place of what the URL's host resolves to")
      ->check(CheckAddress)
      ->group(kRouteOptions);
  AddValue(command, "--limit-rate", options.limitRate, "RATE",
           "Highest speed in bytes per second; 500K and 2M count in steps of 1024")
      ->transform(CLI::Validator(&ToBytesPerSecond, ""))
      ->group(kRouteOptions);
}

// How a signed upload gets its Authorization and Date. Returns the options that ask for it.
std::vector<CLI::Option*> AddSignature(CLI::App* command, Options& options) {
  auto* date = AddValue(command, "--date", options.date, "DATE",
                        "The Date value to send and sign (default with --sign-key-file: now)");
  date->check(CheckLine);
  auto* sign = AddValue(command, "--sign-key-file", options.signKeyFile, "FILE",
                        "Sign the upload with the key in this file: Authorization is \"LUM \" and "
                        "the base64 of the HMAC-SHA1 of method, date and path, one a line");
  auto* ready = AddValue(command, "--authorisation-file", options.authorisationFile, "FILE",
                         "File that holds a ready-made Authorization value; needs --date");
  ready->needs(date)->excludes(sign);
  auto* token = AddValue(command, "--security-token-file", options.securityTokenFile, "FILE",
                         "File that holds the x-zun-security-token value of a signed upload");
  for (auto* option : {date, sign, ready, token}) {
    option->group(kSigningOptions);
  }
  return {date, sign, ready, token};
}

CLI::App* AddUpload(CLI::App& app, Options& options, const char* name, const char* about,
                    const char* operand, const char* operandHelp, const std::string& notes,
                    const char* example) {
  CLI::App* command = AddServiceCommand(app, options, name, kUploads, about, notes, example);
  AddUrl(command, options);
  AddOperand(command, operand, options.path, operandHelp);
  return command;
}

// What the uploads that pack have in the end.
void AddPacking(CLI::App* command, Options& options) {
  command->add_flag("--overwrite", options.overwrite,
                    "Replace, and in the end remove, a file that has the archive's name");
  AddSignature(command, options);
  AddUploadSettings(command, options);
}

void AddUploadCommands(CLI::App& app, Options& options) {
  auto* log = AddUpload(
      app, options, "upload-log", "PUT a log archive", "FILE", "File to send",
      std::string("Three forms: 'Content-Type: application/zip' alone, your own header lines (-H), "
                  "or a signature without a content type. Only the status 200 counts as done. ") +
          kReplyNote +
          "With -H or --timeout the library does not hand on the status of an answer that is "
          "refused: the exit status is then 1. A signed upload may take 60 seconds. ",
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
          kReplyNote,
      "  lumcurl upload-video --limit-rate 2M http://127.0.0.1:8080/objects/a.mp4 a.mp4");
  AddTimeout(video, options, "Time limit; 0: none (default: 60)");
  AddUploadSettings(video, options);

  const std::string archiveNote =
      std::string("Only the status 200 counts as done. ") + kReplyNote + "60 seconds. ";
  auto* file = AddUpload(
      app, options, "upload-file", "Pack one file, PUT the archive, remove it", "FILE",
      "File to pack; it stays",
      "The archive is FILE.tar.gz, beside the file; it is removed after the upload, also after "
      "one that failed, but not when you interrupt it. " +
          archiveNote,
      "  lumcurl upload-file http://127.0.0.1:8080/objects/a.tar.gz /var/log/a.log");
  AddPacking(file, options);

  auto* directory = AddUpload(
      app, options, "upload-dir", "Pack a directory, PUT the archive, remove it", "DIR",
      "Directory to pack; it stays",
      "The archive is DIR.tar.gz, beside the directory (DIR/ makes DIR/.tar.gz, inside it); it is "
      "removed after the upload but kept after one that failed, and when you interrupt it. " +
          archiveNote,
      "  lumcurl upload-dir --sign-key-file storage.key \\\n"
      "      http://127.0.0.1:8080/objects/logs.tar.gz /var/log/robot");
  AddPacking(directory, options);

  auto* group = AddServiceCommand(
      app, options, "upload-group", kUploads, "Pack several files, PUT the archive, remove it",
      "The files are stored by their base names, which must differ. The archive is removed after "
      "the upload, also after one that failed. " +
          archiveNote,
      "  lumcurl upload-group http://127.0.0.1:8080/objects/g.tar.gz a.log b.log");
  AddUrl(group, options);
  AddOperand(group, "FILE", options.files, "Files to pack; they stay")->check(CheckLine);
  AddValue(group, "--archive", options.archive, "BASE",
           "Make the archive as BASE.tar.gz (default: in a directory for temporary files)");
  AddPacking(group, options);
}

// ---- apollo ----

void AddApolloCommand(CLI::App& app, Options& options) {
  auto* apollo = AddCommand(
      app, options, "apollo", kCentre, "Print one namespace of an Apollo configuration centre",
      "The answer is printed as it came unless --key or --env-file is given. Always https; the "
      "host name is looked up for IPv4 alone; 5 seconds. The server is not verified: whoever "
      "stands between can answer in its place, and a shell that reads the lines of --env-file then "
      "takes a stranger's values. In names every character that no variable may have becomes an "
      "underscore; values are quoted for a POSIX shell. Names that steer a shell, the loader or an "
      "interpreter, such as PATH, LD_PRELOAD and PYTHONPATH, are refused; a prefix makes them "
      "harmless.",
      "  lumcurl apollo --env-file --prefix ROBOT_ \\\n"
      "      127.0.0.1:8443 robot application > robot.env");
  AddOperand(apollo, "SERVER", options.server,
             "HOST or HOST:PORT; a name that has an IPv4 address, or such an address")
      ->check(CheckServer);
  AddOperand(apollo, "APP", options.appId, "Id of the application")->check(CheckPathPart);
  AddOperand(apollo, "NAMESPACE", options.namespaceName, "Namespace to print")
      ->check(CheckPathPart);
  AddValue(apollo, "--cluster", options.cluster, "NAME", "Cluster (default: default)")
      ->check(CheckPathPart);
  auto* key =
      AddValue(apollo, "--key", options.property, "NAME", "Print the value of this property");
  auto* envFile = apollo
                      ->add_flag("--env-file", options.envFile,
                                 "Print the properties as lines NAME='value' for a shell to read; "
                                 "the server that they come from is not verified")
                      ->excludes(key);
  AddValue(apollo, "--prefix", options.prefix, "TEXT",
           "Put this in front of each name of --env-file")
      ->check(CheckVariablePrefix)
      ->needs(envFile);
}

}  // namespace

std::unique_ptr<CLI::App> MakeParser(Options& options) {
  auto app = std::make_unique<CLI::App>(
      "Requests, downloads and uploads over libLumCurlHttp. Data goes to standard output, "
      "everything else to standard error.",
      "lumcurl");
  app->formatter_fn([](const CLI::App* shown, const std::string& /*name*/,
                       CLI::AppFormatMode /*mode*/) { return Help(shown); });
  app->set_help_flag("-h,--help", "Print this help and exit");
  app->set_version_flag("--version", "",
                        "Print the versions of the tool, the library and libcurl, and exit");
  app->require_subcommand(1);
  app->footer(
      "Secrets (pass phrases, tokens, keys, signatures) come from files or the environment. Each "
      "command has its own --help; man lumcurl has all of it, and the environment variables." +
      std::string(kExampleMark) + "  lumcurl get http://127.0.0.1:8080/echo");

  AddHttpCommands(*app, options);
  AddServiceCommands(*app, options);
  AddUploadCommands(*app, options);
  AddApolloCommand(*app, options);
  auto* completion = AddCommand(
      *app, options, "completion", kTool, "Print a shell completion",
      "Where each shell looks: ~/.local/share/bash-completion/completions/lumcurl for bash, a "
      "directory of $fpath under the name _lumcurl for zsh, "
      "~/.config/fish/completions/lumcurl.fish for fish. The packages install all three.",
      "  lumcurl completion fish > ~/.config/fish/completions/lumcurl.fish");
  AddOperand(completion, "SHELL", options.shell, "The shell: bash, zsh or fish")
      ->check(CLI::IsMember(kShells));
  return app;
}
