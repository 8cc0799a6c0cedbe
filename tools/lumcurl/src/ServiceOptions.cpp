// The command line of token, refresh-token, report, log-address, service-get and service-post.

#include "OptionGroups.h"

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
  AddHeader(get, options, "A header line to send, or @FILE to read lines from a file; repeatable");
  AddServiceSettings(get, options);

  auto* post = AddServiceCommand(
      app, options, "service-post", kService, "POST a body with header lines of your own",
      "The body is sent as it stands and no header line is added to yours; only the status 200 "
      "counts as done. 5 seconds. ",
      "  lumcurl service-post -H 'Content-Type: application/json' -d '{}' \\\n"
      "      http://127.0.0.1:8080/echo");
  AddUrl(post, options);
  AddBody(post, options, "The body");
  AddHeader(post, options, "A header line to send, or @FILE to read lines from a file; repeatable");
  AddServiceSettings(post, options);
}
