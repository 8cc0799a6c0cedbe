// libcurl's own reading of a URL.

#include "RequestPath.h"

#include <curl/curl.h>

#include <memory>

#include "Failure.h"

namespace {

struct UrlCleanup {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
struct CurlFree {
  void operator()(char* text) const { curl_free(text); }
};

}  // namespace

std::string RequestPath(const std::string& url) {
  const std::unique_ptr<CURLU, UrlCleanup> parsed(curl_url());
  char* path = nullptr;
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
      curl_url_get(parsed.get(), CURLUPART_PATH, &path, 0) != CURLUE_OK) {
    throw Failure(Exit::kUsage, "'" + url + "' is no URL");
  }
  const std::unique_ptr<char, CurlFree> owned(path);
  return path;
}
