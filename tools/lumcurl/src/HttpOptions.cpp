// The command line of get, post, download and apollo.

#include "OptionGroups.h"

namespace {

constexpr char kOneHeader[] =
    "The one header line to send in place of 'Content-Type: application/json' and "
    "'charsets: utf-8', or @FILE to read it from a file";

}  // namespace

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
