// The small shapes in which the three clients use libcurl's easy interface.

#ifndef LUM_CURL_EASY_H
#define LUM_CURL_EASY_H

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <new>
#include <string>

#include "HttpResult.h"

namespace lumhttp {

struct EasyHandleCleanup {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, EasyHandleCleanup>;

struct HeaderListFree {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListFree>;

// libcurl writes at most CURL_ERROR_SIZE (256) bytes of it.
constexpr std::size_t kErrorBufferSize = 4096;

// An option that libcurl could not copy must not be left out of the request: that is the caller's
// std::bad_alloc. Any other refusal shows in the transfer.
inline void ThrowIfOutOfMemory(CURLcode result) {
  if (result == CURLE_OUT_OF_MEMORY) {
    throw std::bad_alloc();
  }
}

// Sets one option.
template <typename Value>
void SetOption(const EasyHandle& handle, CURLoption option, Value value) {
  ThrowIfOutOfMemory(curl_easy_setopt(handle.get(), option, value));
}

// Appends a copy of `line`; std::bad_alloc leaves the list as it was.
void AppendLine(HeaderList& list, const char* line);

// Makes libcurl send the lines that end behind their colon and blanks: it leaves a line without a
// value out, and sends "Name:" for "Name;". A line that ends with the colon alone stays what it is
// to libcurl, the removal of a header of its own, and one without a name stays left out. To be
// called once the list is an option.
// https://curl.se/libcurl/c/CURLOPT_HTTPHEADER.html
void KeepEmptyValues(const HeaderList& list);

// The header lines of a JSON request that has none of its caller's.
HeaderList JsonHeaderLines();

// The frame of one request that comes to an HttpResult. The options are set by the operation, each
// in an order of its own. What is still held at the end is released in reverse: header list,
// handle.
struct EasyTransfer {
  // `result` is the operation's, and outlives the frame.
  explicit EasyTransfer(HttpResult& resultToFill) : result(resultToFill) {}

  // False when libcurl has no handle to give.
  bool Init();

  void ClearErrorBuffer();

  // Performs the transfer and reads the HTTP status, 0 where none arrived. True when libcurl
  // reports no failure. Rethrows what WriteToString met.
  bool Perform();

  HttpResult& result;
  char errorBuffer[kErrorBufferSize];
  EasyHandle handle;
  HeaderList headers;
  CURLcode outcome = CURLE_OK;
  long status = 0;
};

// libcurl's write callback of every buffered request; `user` is the HttpResult. Appends size *
// count bytes to its body and returns the product in 32 bits. 0, which makes libcurl give up the
// transfer, for a null pointer or an exception: that one waits in the result, for none may cross
// libcurl's frames.
std::size_t WriteToString(char* data, std::size_t size, std::size_t count, void* user);

// The body of a transfer that failed: `prefix`, libcurl's error text, " .".
std::string FailureText(const char* prefix, const char* errorText);

}  // namespace lumhttp

#endif  // LUM_CURL_EASY_H
