// The signature of an upload.

#include "Signing.h"

#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <climits>
#include <memory>

#include "Failure.h"

namespace {

struct UrlCleanup {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
struct CurlFree {
  void operator()(char* text) const { curl_free(text); }
};

std::string Base64(const unsigned char* bytes, unsigned size) {
  std::string text(4 * ((size + 2) / 3) + 1, '\0');  // OpenSSL writes a zero byte behind
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes, static_cast<int>(size));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace

std::string HttpDate(std::time_t seconds) {
  // strftime's names follow the locale, which this program never sets.
  std::tm parts = {};
  gmtime_r(&seconds, &parts);
  std::array<char, 64> text{};
  const std::size_t length =
      std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return {text.data(), length};
}

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

std::string Signature(const std::string& key, const std::string& method, const std::string& date,
                      const std::string& path) {
  const std::string text = method + "\n" + date + "\n" + path;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (key.size() > INT_MAX || HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
                                   reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                                   digest.data(), &size) == nullptr) {
    throw Failure(Exit::kOther, "OpenSSL cannot compute an HMAC-SHA1");
  }
  return "LUM " + Base64(digest.data(), size);
}
