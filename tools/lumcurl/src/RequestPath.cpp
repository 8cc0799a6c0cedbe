// libcurl's own reading of a URL.

#include "RequestPath.h"

#include <curl/curl.h>

#include <memory>

#include "Failure.h"

std::string RequestPath(const std::string& url) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
  char* path = nullptr;
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
      curl_url_get(parsed.get(), CURLUPART_PATH, &path, 0) != CURLUE_OK) {
    throw Failure(Exit::kUsage, "'" + url + "' is no URL");
  }
  const std::unique_ptr<char, decltype(&curl_free)> owned(path, &curl_free);
  return path;
}
