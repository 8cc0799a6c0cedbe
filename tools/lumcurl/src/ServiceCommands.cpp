// token, refresh-token, report, log-address, service-get and service-post.

#include <list>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Exchange.h"
#include "Input.h"

namespace {

constexpr unsigned int kRequestTimeLimit = 4;  // seconds, the library's: GET, PUT, gzip reports
constexpr unsigned int kPostTimeLimit = 5;     // likewise: POST

constexpr char kJsonContent[] = "Content-Type: application/json";
constexpr char kTokenHeader[] = "X-Auth-Token: ";

const Verdict kNothingKnown = {Exit::kOther, "the library could make no request of it",
                               "-v shows what it logs"};

std::string ReadToken(const Options& options, Console& console) {
  return ReadSecret("the token", options.tokenFile, kTokenVariable, console);
}

}  // namespace

// Only the log tells a null answer from a failure.
Exit RunToken(const Options& options, Console& console) {
  const bool refreshes = options.command == "refresh-token";
  const LumJson::Value document = ReadDocument(options, console);
  MaskSecrets(document, console);
  const std::string token = refreshes ? ReadToken(options, console) : "";
  Request request{refreshes ? "PUT" : "POST",
                  options.url,
                  {kJsonContent},
                  refreshes ? kRequestTimeLimit : kPostTimeLimit,
                  document.ToStyledString()};
  if (refreshes) {
    request.lines.push_back(kTokenHeader + token);
  }
  ServiceCall call(options, console, request);
  const LumJson::Value answer = refreshes ? call.client.RefreshToken(options.url, document, token)
                                          : call.client.GetToken(options.url, document);
  const Facts& told = call.exchange.Told();
  const bool failed = told.status.value_or(200) != 200 || told.notJson || told.curlResult != 0;
  call.exchange.ShowStatus(failed ? told.status : 200);
  if (failed) {
    return call.exchange.Fail(std::nullopt, kNothingKnown);
  }
  console.Document(answer.ToStyledString());
  return call.exchange.Succeed();
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
  Request request{"POST", options.url, {kJsonContent, kTokenHeader + token}, timeLimit};
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
  ServiceCall call(options, console, request);
  LumCurlOrvOps& client = call.client;
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
    return call.exchange.Succeed();
  }
  call.exchange.ShowStatus(call.exchange.Told().status);
  if (call.exchange.Told().compressFailed) {
    return call.exchange.Report({Exit::kOther, "the document could not be compressed",
                                 "one this small or this large goes without --gzip"});
  }
  return call.exchange.Fail(std::nullopt, kNothingKnown, client.GetLastErrorBody());
}

Exit RunLogAddress(const Options& options, Console& console) {
  const std::string token = ReadToken(options, console);
  ServiceCall call(options, console,
                   {"GET", options.url, {kJsonContent, kTokenHeader + token}, kRequestTimeLimit});
  console.Detail("> with ?access_id=" + *options.accessId + "&file_name=" + options.fileName);
  const LumJson::Value answer =
      call.client.GetLogAddress(options.url, *options.accessId, token, options.fileName);
  const Facts& told = call.exchange.Told();
  const bool refused = told.refused || told.notJson || told.curlResult != 0;
  call.exchange.ShowStatus(refused ? std::nullopt : std::optional<int>(200));
  if (refused) {
    return call.exchange.Fail(
        std::nullopt, {Exit::kOther, "the server refused, with a status that is not visible",
                       "check the token and the path of the URL"});
  }
  console.Document(answer.ToStyledString());
  return call.exchange.Succeed();
}

Exit RunServiceGetOrPost(const Options& options, Console& console) {
  const bool isPost = options.command == "service-post";
  const std::string body = isPost ? ReadBody(options, console) : "";
  const std::vector<std::string> lines = ReadHeaders(options, console);
  ServiceCall call(
      options, console,
      {isPost ? "POST" : "GET", options.url, lines, isPost ? kPostTimeLimit : kRequestTimeLimit});
  const std::list<std::string> list(lines.begin(), lines.end());
  int status = -1;
  const LumJson::Value answer = isPost ? call.client.Post(options.url, body, list, status)
                                       : call.client.Get(options.url, list, status);
  call.exchange.ShowStatus(status);
  if (status != 200 || call.exchange.Told().notJson || call.exchange.Told().curlResult != 0) {
    return call.exchange.Fail(status, kNothingKnown);
  }
  console.Document(answer.ToStyledString());
  return call.exchange.Succeed();
}
