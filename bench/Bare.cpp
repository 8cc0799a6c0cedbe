// The product's requests over libcurl alone.

#include "Bare.h"

#include <curl/curl.h>

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

void SetGeneralResult(CURL* handle, char* error, Reply* reply) {
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &AppendToReply);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, reply);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 5L);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, 5L);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
}

// Performs, reads the status and releases. `reply` is where the options send the body.
void Run(CURL* handle, curl_slist* list, Reply& reply) {
  curl_easy_perform(handle);
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &reply.status);
  curl_slist_free_all(list);
  curl_easy_cleanup(handle);
}

}  // namespace

std::size_t AppendToReply(char* data, std::size_t size, std::size_t count, void* user) {
  static_cast<Reply*>(user)->body.append(data, size * count);
  return size * count;
}

Reply BareGet(const char* url) {
  Reply reply;
  char error[CURL_ERROR_SIZE] = "";
  CURL* handle = curl_easy_init();
  curl_slist* list = JsonList();
  curl_easy_setopt(handle, CURLOPT_USERAGENT, "QVcurlHttp/0.1.2");
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
  SetGeneralResult(handle, error, &reply);
  Run(handle, list, reply);
  return reply;
}

Reply BarePost(const char* url, const std::string& body) {
  Reply reply;
  char error[CURL_ERROR_SIZE] = "";
  CURL* handle = curl_easy_init();
  curl_slist* list = JsonList();
  curl_easy_setopt(handle, CURLOPT_USERAGENT, "QVcurlHttp/0.1.2");
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_POST, 1L);
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  SetGeneralResult(handle, error, &reply);
  Run(handle, list, reply);
  return reply;
}

Reply BareServiceGet(const char* url, const Lines& lines) {
  Reply reply;
  char error[CURL_ERROR_SIZE] = "";
  CURL* handle = curl_easy_init();
  curl_slist* list = List(lines);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_POST, 0L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &AppendToReply);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &reply);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 4L);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, 4L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  Run(handle, list, reply);
  return reply;
}

Reply BareServicePost(const char* url, const char* body, std::size_t size, const Lines& lines) {
  Reply reply;
  char error[CURL_ERROR_SIZE] = "";
  CURL* handle = curl_easy_init();
  curl_slist* list = List(lines);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_POST, 1L);
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body);
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(size));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &AppendToReply);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &reply);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 4L);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, 5L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  Run(handle, list, reply);
  return reply;
}

Reply BareServicePut(const char* url, const std::string& body, const Lines& lines) {
  Reply reply;
  char error[CURL_ERROR_SIZE] = "";
  CURL* handle = curl_easy_init();
  curl_slist* list = List(lines);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, "PUT");
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &AppendToReply);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &reply);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 4L);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, 4L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  Run(handle, list, reply);
  return reply;
}

Reply BareFetch(const char* url) {
  Reply reply;
  char error[CURL_ERROR_SIZE] = "";
  CURL* handle = curl_easy_init();
  curl_slist* list = JsonList();
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(handle, CURLOPT_URL, url);
  SetGeneralResult(handle, error, &reply);
  Run(handle, list, reply);
  return reply;
}

bool BareDownload(const char* url, FILE* file) {
  CURL* handle = curl_easy_init();
  curl_slist* list = JsonList();
  curl_easy_setopt(handle, CURLOPT_USERAGENT, "QVcurlHttp/0.1.2");
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, file);  // by libcurl's own write function, fwrite
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 60L);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, 60L);
  const bool done = curl_easy_perform(handle) == CURLE_OK;
  curl_slist_free_all(list);
  curl_easy_cleanup(handle);
  return done;
}

}  // namespace lumbench
