// token, refresh-token, report, log-address, service-get and service-post.

#include <list>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Input.h"
#include "ServiceClient.h"

namespace {

constexpr unsigned int kRequestTimeLimit = 4;  // seconds, the library's: GET, PUT, gzip reports
constexpr unsigned int kPostTimeLimit = 5;     // likewise: POST

constexpr char kJsonContent[] = "Content-Type: application/json";

const Verdict kNothingKnown = {Exit::kOther, "the library could make no request of it",
                               "-v shows what it logs"};

std::string ReadToken(const Options& options, Console& console) {
  return ReadSecret("the token", options.tokenFile, kTokenVariable, console);
}

// The end of token and refresh-token: only the log tells a null answer from a failure.
Exit FinishToken(Exchange& exchange, Console& console, const LumJson::Value& answer) {
  const Facts& told = exchange.Told();
  const bool failed = told.status.value_or(200) != 200 || told.notJson || told.curlResult != 0;
  exchange.ShowStatus(failed ? told.status : 200);
  if (failed) {
    return exchange.Fail(std::nullopt, kNothingKnown);
  }
  console.Document(answer.ToStyledString());
  return exchange.Succeed();
}

// service-get, and service-post when there is a body.
Exit RunJson(const Options& options, Console& console, const std::string* body) {
  const std::vector<std::string> lines = ReadHeaders(options, console);
  Request request = MakeRequest(options, console, body == nullptr ? "service-get" : "service-post",
                                body == nullptr ? "GET" : "POST",
                                body == nullptr ? kRequestTimeLimit : kPostTimeLimit);
  request.lines = lines;
  Exchange exchange(console, request);
  LumCurlOrvOps client;
  Configure(client, options, console);
  const std::list<std::string> list(lines.begin(), lines.end());
  int status = -1;
  const LumJson::Value answer = body == nullptr ? client.Get(options.url, list, status)
                                                : client.Post(options.url, *body, list, status);
  exchange.ShowStatus(status);
  if (status != 200 || exchange.Told().notJson || exchange.Told().curlResult != 0) {
    return exchange.Fail(status, kNothingKnown);
  }
  console.Document(answer.ToStyledString());
  return exchange.Succeed();
}

}  // namespace

Exit RunToken(const Options& options, Console& console) {
  const LumJson::Value document = ReadDocument(options, console);
  MaskSecrets(document, console);
  Request request = MakeRequest(options, console, "token", "POST", kPostTimeLimit);
  request.lines = {kJsonContent};
  request.document = document.ToStyledString();
  Exchange exchange(console, request);
  LumCurlOrvOps client;
  Configure(client, options, console);
  return FinishToken(exchange, console, client.GetToken(options.url, document));
}

Exit RunRefreshToken(const Options& options, Console& console) {
  const LumJson::Value document = ReadDocument(options, console);
  MaskSecrets(document, console);
  const std::string token = ReadToken(options, console);
  Request request = MakeRequest(options, console, "refresh-token", "PUT", kRequestTimeLimit);
  request.lines = {kJsonContent, "X-Auth-Token: " + token};
  request.document = document.ToStyledString();
  Exchange exchange(console, request);
  LumCurlOrvOps client;
  Configure(client, options, console);
  return FinishToken(exchange, console, client.RefreshToken(options.url, document, token));
}

Exit RunReport(const Options& options, Console& console) {
  LumJson::Value document = ReadDocument(options, console);
  const std::string token = ReadToken(options, console);
  if (!options.topic.empty() && !document.IsObject()) {
    throw Failure(Exit::kUsage,
                  "--topic needs a JSON object, and the document is none; nothing was sent");
  }
  const unsigned int timeLimit =
      options.gzip ? kRequestTimeLimit : options.timeout.value_or(kPostTimeLimit);
  Request request = MakeRequest(options, console, "report", "POST", timeLimit);
  request.lines = {kJsonContent, "X-Auth-Token: " + token};
  const bool ownAccessId = options.gzip && !options.accessId;
  if (options.gzip) {
    const LumJson::Value& member = static_cast<const LumJson::Value&>(document)["accessId"];
    request.lines.push_back("X-ORV-ACCESS-ID: " +
                            (ownAccessId ? member.JsonValueToString() : *options.accessId));
    request.lines.emplace_back("Content-Encoding: gzip");
    if (ownAccessId && member.JsonValueToString().empty()) {
      console.Warn("the document has no accessId: the report names no sender; give --access-id");
    }
    // It becomes a header line as it stands.
    if (ownAccessId && member.JsonValueToString().find_first_of("\r\n") != std::string::npos) {
      throw Failure(Exit::kUsage, "the document's accessId holds a line break; nothing was sent");
    }
  }
  Exchange exchange(console, request);
  LumCurlOrvOps client;
  Configure(client, options, console);
  int result = 0;
  if (!options.gzip) {
    result = options.timeout
                 ? client.ReportData(options.url, document, token, *options.timeout, options.topic)
                 : client.ReportData(options.url, document, token, options.topic);
  } else if (!ownAccessId) {
    result =
        client.ReportDataWithGzip(options.url, document, token, *options.accessId, options.topic);
  } else {
    // No form takes a topic and the document's own accessId.
    if (!options.topic.empty()) {
      document.AddJsonValue("topic_name", options.topic);
    }
    result = client.ReportDataWithGzip(options.url, document, token);
  }
  if (result == 0) {
    console.Detail("< 200 or 204");
    return exchange.Succeed();
  }
  exchange.ShowStatus(exchange.Told().status);
  if (exchange.Told().compressFailed) {
    return exchange.Report({Exit::kOther, "the document could not be compressed",
                            "one this small or this large goes without --gzip"});
  }
  return exchange.Fail(std::nullopt, kNothingKnown, client.GetLastErrorBody());
}

Exit RunLogAddress(const Options& options, Console& console) {
  const std::string token = ReadToken(options, console);
  Request request = MakeRequest(options, console, "log-address", "GET", kRequestTimeLimit);
  request.lines = {kJsonContent, "X-Auth-Token: " + token};
  Exchange exchange(console, request);
  console.Detail("> with ?access_id=" + *options.accessId + "&file_name=" + options.fileName);
  LumCurlOrvOps client;
  Configure(client, options, console);
  const LumJson::Value answer =
      client.GetLogAddress(options.url, *options.accessId, token, options.fileName);
  const Facts& told = exchange.Told();
  const bool refused = told.refused || told.notJson || told.curlResult != 0;
  exchange.ShowStatus(refused ? std::nullopt : std::optional<int>(200));
  if (refused) {
    return exchange.Fail(std::nullopt,
                         {Exit::kOther, "the server refused, with a status that is not visible",
                          "check the token and the path of the URL"});
  }
  console.Document(answer.ToStyledString());
  return exchange.Succeed();
}

Exit RunServiceGet(const Options& options, Console& console) {
  return RunJson(options, console, nullptr);
}

Exit RunServicePost(const Options& options, Console& console) {
  const std::string body = ReadBody(options, console);
  return RunJson(options, console, &body);
}
