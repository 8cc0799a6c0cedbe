// LumApolloPrivate: one namespace of properties over one easy handle.

#include "LumApolloPrivate.h"

#include "CurlEasy.h"
#include "Log.h"
#include "LumBoundsCheck.h"

namespace {

constexpr char kLogPath[] = "BaseAPI/LumCurlHttp/src/LumApolloPrivate";

constexpr std::size_t kUrlSize = 4096;  // bytes, the terminator among them
constexpr long kTimeoutSeconds = 5;

}  // namespace

// The texts say POST although the request is a GET: that is their wording.
HttpResult LumApolloPrivate::GetPropertyString(LumApolloEnv& env) {
  CollectedResult result;
  char errorBuffer[kErrorBufferSize];
  EasyHandle handle(curl_easy_init());
  if (!handle) {
    LUM_LOG(kLogError, "GetPropertyString", "POST curl init failed");
    return result.Take();
  }
  if (env.cluster.empty()) {
    env.cluster = "default";
  }
  char url[kUrlSize];
  memset_s(url, sizeof(url), 0, sizeof(url));
  if (sprintf_s(url, sizeof(url), "https://%s/configs/%s/%s/%s", env.configServer.c_str(),
                env.appId.c_str(), env.cluster.c_str(), env.namespaceName.c_str()) < 0) {
    (void)
        handle.release();  // a URL that does not fit keeps its handle: deliberately never released
    return result.Take();
  }
  long status = 0;
  memset_s(errorBuffer, sizeof(errorBuffer), 0, sizeof(errorBuffer));
  HeaderList headers = JsonHeaderLines();

  SetOption(handle, CURLOPT_HTTPHEADER, headers.get());
  (void)headers.release();  // each request keeps its header list: deliberately never freed
  SetOption(handle, CURLOPT_URL, &url[0]);
  SetOption(handle, CURLOPT_WRITEFUNCTION, &WriteToString);
  SetOption(handle, CURLOPT_WRITEDATA, static_cast<HttpResult*>(&result));
  SetOption(handle, CURLOPT_ERRORBUFFER, &errorBuffer[0]);
  SetOption(handle, CURLOPT_CONNECTTIMEOUT, kTimeoutSeconds);
  SetOption(handle, CURLOPT_TIMEOUT, kTimeoutSeconds);
  SetOption(handle, CURLOPT_NOSIGNAL, 1L);
  SetOption(handle, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));
  SetOption(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  SetOption(handle, CURLOPT_SSL_VERIFYHOST, 0L);

  const CURLcode outcome = Perform(handle, result, status);
  if (outcome == CURLE_OK) {
    result.code = static_cast<int>(status);
    return result.Take();
  }
  LUM_LOG(kLogError, "GetPropertyString",
          "POST(%s) failed for %s, rps: %d, code: %ld, errorBuf: %s", url,
          curl_easy_strerror(outcome), outcome, status, errorBuffer);
  result.body = FailureText("POST failed for: ", errorBuffer);
  return result.Take();
}
