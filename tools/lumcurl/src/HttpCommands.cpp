// get, post and download.

#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Exchange.h"
#include "Input.h"
#include "LumCurlHttp.h"
#include "Progress.h"
#include "Text.h"

namespace {

constexpr unsigned int kJsonTimeLimit = 5;       // seconds, the library's
constexpr unsigned int kDownloadTimeLimit = 60;  // likewise

constexpr std::size_t kLookedAt = 2048;  // bytes of what was downloaded

constexpr char kUserAgent[] = "User-Agent: QVcurlHttp/0.1.2";
constexpr char kContentType[] = "Content-Type: application/json";
constexpr char kCharset[] = "charsets: utf-8";

void ConfigureSsl(LumCurlHttp& client, const Options& options, Console& console) {
  if (!options.ssl) {
    return;
  }
  if (options.url.rfind("https://", 0) != 0) {
    throw Failure(Exit::kUsage, "--ssl asks for TLS, but '" + options.url +
                                    "' does not begin with https://; nothing was sent");
  }
  SetCertificate(client, options, console);
}

std::uint64_t FileBytes(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
             ? static_cast<std::uint64_t>(status.st_size)
             : 0;
}

}  // namespace

Exit RunGetOrPost(const Options& options, Console& console) {
  const bool isPost = options.command == "post";
  const std::string body = isPost ? ReadBody(options, console) : "";
  const std::vector<std::string> own = ReadHeaders(options, console);
  if (own.size() > 1) {
    throw Failure(Exit::kUsage,
                  "one header line at most: service-" + options.command + " sends several");
  }
  LumCurlHttp client;
  ConfigureSsl(client, options, console);
  if (!own.empty()) {
    client.SetHeaders(own.front());
  }
  Request request{isPost ? "POST" : "GET", options.url, {kUserAgent}, kJsonTimeLimit};
  if (own.empty()) {
    request.lines.insert(request.lines.end(), {kContentType, kCharset});
  } else {
    request.lines.push_back(own.front());
  }
  request.howToVerify = "--ssl with --cacert, --cert and --key verifies it";
  Exchange exchange(options, console, request);
  int status = -1;
  const LumJson::Value answer = isPost ? client.Post(options.url, body, options.ssl, status)
                                       : client.Get(options.url, "", options.ssl, status);
  exchange.ShowStatus(status);
  if (status > 0) {
    console.Document(answer.ToStyledString());
  }
  if (status >= 200 && status < 300) {
    return exchange.Succeed();
  }
  return exchange.Fail(status, {Exit::kOther, "no request could be made", "-v shows more"});
}

Exit RunDownload(const Options& options, Console& console) {
  const std::string problem = WriteProblem(options.path);
  if (!problem.empty()) {
    throw Failure(Exit::kFile, problem);
  }
  Exchange exchange(options, console,
                    {"GET", options.url, {kUserAgent, kContentType, kCharset}, kDownloadTimeLimit});
  LumCurlHttp client;
  int result = 0;
  {
    ProgressMeter meter(console, [&options] {
      return Progress{false, FileBytes(options.path), 0};
    });
    result = client.DownloadFile(options.url, options.path);
    meter.Finish();
  }
  exchange.ShowStatus(std::nullopt);
  if (result == 0) {
    if (LooksLikeErrorPage(options.url, ReadStart(options.path, kLookedAt))) {
      console.Warn("what is in " + Quoted(options.path) +
                   " looks like an error page: download does not see the status");
    }
    return exchange.Succeed();
  }
  // The library says nothing of a path that it refuses, and of a disk that is full only so much.
  const Facts& told = exchange.Told();
  if (told.fileNotOpened || told.curlResult == 0) {
    return exchange.Report({Exit::kFile, "cannot write " + Quoted(options.path),
                            "check that its directory exists and can be written to"});
  }
  const Verdict verdict = JudgeTransfer(told.curlResult, told.curlText, kDownloadTimeLimit);
  if (verdict.exit == Exit::kFile) {
    return exchange.Report({Exit::kFile,
                            "cannot write " + Quoted(options.path) + ": " + verdict.reason,
                            verdict.advice});
  }
  const Exit exit = exchange.Report(verdict);
  if (FileBytes(options.path) > 0) {
    console.Error("what had arrived is in " + Quoted(options.path));
  }
  return exit;
}
