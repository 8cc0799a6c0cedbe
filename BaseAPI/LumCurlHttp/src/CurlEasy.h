// The small shapes in which the three clients use libcurl's easy interface.

#ifndef LUM_CURL_EASY_H
#define LUM_CURL_EASY_H

#include <curl/curl.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "HttpResult.h"

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

// Sets one option. An option that libcurl could not copy must not be left out of the request, so
// that is the caller's std::bad_alloc; any other refusal shows in the transfer.
template <typename Value>
void SetOption(const EasyHandle& handle, CURLoption option, Value value) {
  if (curl_easy_setopt(handle.get(), option, value) == CURLE_OUT_OF_MEMORY) {
    throw std::bad_alloc();
  }
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

// An HttpResult being built by WriteToString. No exception may cross libcurl's frames: what the
// callback meets waits here for Perform.
struct CollectedResult : HttpResult {
  // The result without `failure`, moved out.
  HttpResult Take() { return std::move(*this); }

  std::exception_ptr failure;
};

// libcurl's write callback of every buffered request: appends size * count bytes to the body of the
// CollectedResult that `user` designates as an HttpResult, and returns the product in 32 bits. 0,
// which makes libcurl give up the transfer, for a null pointer or an exception.
std::size_t WriteToString(char* data, std::size_t size, std::size_t count, void* user);

// Performs the transfer and reads the HTTP status into `status`, 0 where none arrived. Rethrows
// what WriteToString met.
CURLcode Perform(const EasyHandle& handle, const CollectedResult& result, long& status);

// The body of a transfer that failed: `prefix`, libcurl's error text, " .".
std::string FailureText(const char* prefix, const char* errorText);

#endif  // LUM_CURL_EASY_H
