// LumApolloPrivate: one namespace of properties over one easy handle.

#include "LumApolloPrivate.h"

#include "CurlEasy.h"
#include "Log.h"
#include "LumBoundsCheck.h"

using namespace lumhttp;

namespace {

constexpr char kLogPath[] = "BaseAPI/LumCurlHttp/src/LumApolloPrivate";

constexpr std::size_t kUrlSize = 4096;  // bytes, the terminator among them
constexpr long kTimeoutSeconds = 5;

}  // namespace

// The texts say POST although the request is a GET (docs/compatibility.md, log-apollo-post). The
// order of the options is that page's too: apollo-order.
HttpResult LumApolloPrivate::GetPropertyString(LumApolloEnv& env) {
  HttpResult result;
  EasyTransfer transfer(result);
  if (!transfer.Init()) {
    LUM_LOG(kLogError, "GetPropertyString", "POST curl init failed");
    return result;
  }
  if (env.cluster.empty()) {
    env.cluster = "default";
  }
  char url[kUrlSize];
  memset_s(url, sizeof(url), 0, sizeof(url));
  if (sprintf_s(url, sizeof(url), "https://%s/configs/%s/%s/%s", env.configServer.c_str(),
                env.appId.c_str(), env.cluster.c_str(), env.namespaceName.c_str()) < 0) {
    // A URL that does not fit keeps its handle (docs/compatibility.md, kept-apollo-handle).
    (void)transfer.handle.release();
    return result;
  }
  transfer.ClearErrorBuffer();
  transfer.headers = JsonHeaderLines();

  SetOption(transfer.handle, CURLOPT_HTTPHEADER, transfer.headers.get());
  // Each request keeps its header list (docs/compatibility.md, kept-apollo-list).
  (void)transfer.headers.release();
  SetOption(transfer.handle, CURLOPT_URL, &url[0]);
  SetOption(transfer.handle, CURLOPT_WRITEFUNCTION, &WriteToString);
  SetOption(transfer.handle, CURLOPT_WRITEDATA, &transfer.result);
  SetOption(transfer.handle, CURLOPT_ERRORBUFFER, &transfer.errorBuffer[0]);
  SetOption(transfer.handle, CURLOPT_CONNECTTIMEOUT, kTimeoutSeconds);
  SetOption(transfer.handle, CURLOPT_TIMEOUT, kTimeoutSeconds);
  SetOption(transfer.handle, CURLOPT_NOSIGNAL, 1L);
  SetOption(transfer.handle, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));
  SetOption(transfer.handle, CURLOPT_SSL_VERIFYPEER, 0L);
  SetOption(transfer.handle, CURLOPT_SSL_VERIFYHOST, 0L);

  if (transfer.Perform()) {
    result.code = static_cast<int>(transfer.status);
    return result;
  }
  LUM_LOG(kLogError, "GetPropertyString",
          "POST(%s) failed for %s, rps: %d, code: %ld, errorBuf: %s", url,
          curl_easy_strerror(transfer.outcome), transfer.outcome, transfer.status,
          transfer.errorBuffer);
  result.body = FailureText("POST failed for: ", transfer.errorBuffer);
  return result;
}
