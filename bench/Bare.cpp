// The product's requests over libcurl alone.

#include "Bare.h"

#include <curl/curl.h>

#include <utility>

namespace lumbench {

namespace {

curl_slist* List(const Lines& lines) {
  curl_slist* list = nullptr;
  for (const char* line : lines) {
    list = curl_slist_append(list, line);
  }
  return list;
}

curl_slist* JsonList() {
  curl_slist* list = curl_slist_append(nullptr, "Content-Type: application/json");
  return curl_slist_append(list, "charsets: utf-8");
}

// One request: its handle, its header list and what comes back.
class Request {
 public:
  Request(const char* url, curl_slist* list, const char* userAgent = nullptr)
      : handle(curl_easy_init()), m_list(list) {
    if (userAgent != nullptr) {
      curl_easy_setopt(handle, CURLOPT_USERAGENT, userAgent);
    }
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, m_list);
    curl_easy_setopt(handle, CURLOPT_URL, url);
  }
  ~Request() {
    curl_slist_free_all(m_list);
    curl_easy_cleanup(handle);
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  void SetBody(const char* body, std::size_t size) {
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(size));
  }
  void SetReply() {
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &AppendToReply);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &m_reply);
  }
  void SetLimits(long connecting, long whole) {
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, m_error);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connecting);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, whole);
  }
  void TrustEverybody() {
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  }

  Reply Send() {
    curl_easy_perform(handle);
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &m_reply.status);
    return std::move(m_reply);
  }
  // What the general and the configuration client set at the end.
  Reply SendAsGeneral() {
    SetReply();
    SetLimits(5, 5);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));
    TrustEverybody();
    return Send();
  }

  CURL* const handle;

 private:
  curl_slist* const m_list;
  Reply m_reply;
  char m_error[CURL_ERROR_SIZE] = "";
};

constexpr char kUserAgent[] = "QVcurlHttp/0.1.2";

}  // namespace

std::size_t AppendToReply(char* data, std::size_t size, std::size_t count, void* user) {
  static_cast<Reply*>(user)->body.append(data, size * count);
  return size * count;
}

Reply BareGet(const char* url) {
  Request request(url, JsonList(), kUserAgent);
  curl_easy_setopt(request.handle, CURLOPT_HTTPGET, 1L);
  return request.SendAsGeneral();
}

Reply BarePost(const char* url, const std::string& body) {
  Request request(url, JsonList(), kUserAgent);
  curl_easy_setopt(request.handle, CURLOPT_POST, 1L);
  request.SetBody(body.c_str(), body.size());
  return request.SendAsGeneral();
}

Reply BareServiceGet(const char* url, const Lines& lines) {
  Request request(url, List(lines));
  curl_easy_setopt(request.handle, CURLOPT_POST, 0L);
  request.SetReply();
  curl_easy_setopt(request.handle, CURLOPT_NOSIGNAL, 1L);
  request.SetLimits(4, 4);
  request.TrustEverybody();
  return request.Send();
}

Reply BareServicePost(const char* url, const char* body, std::size_t size, const Lines& lines) {
  Request request(url, List(lines));
  curl_easy_setopt(request.handle, CURLOPT_POST, 1L);
  request.SetBody(body, size);
  request.SetReply();
  curl_easy_setopt(request.handle, CURLOPT_NOSIGNAL, 1L);
  request.SetLimits(4, 5);
  request.TrustEverybody();
  return request.Send();
}

Reply BareServicePut(const char* url, const std::string& body, const Lines& lines) {
  Request request(url, List(lines));
  curl_easy_setopt(request.handle, CURLOPT_CUSTOMREQUEST, "PUT");
  request.SetBody(body.c_str(), body.size());
  request.SetReply();
  request.SetLimits(4, 4);
  request.TrustEverybody();
  return request.Send();
}

Reply BareFetch(const char* url) {
  return Request(url, JsonList()).SendAsGeneral();
}

bool BareDownload(const char* url, FILE* file) {
  Request request(url, JsonList(), kUserAgent);
  curl_easy_setopt(request.handle, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(request.handle, CURLOPT_SSL_VERIFYPEER, 0L);
  // By libcurl's own write function, fwrite.
  curl_easy_setopt(request.handle, CURLOPT_WRITEDATA, file);
  curl_easy_setopt(request.handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(request.handle, CURLOPT_CONNECTTIMEOUT, 60L);
  curl_easy_setopt(request.handle, CURLOPT_TIMEOUT, 60L);
  return curl_easy_perform(request.handle) == CURLE_OK;
}

}  // namespace lumbench
