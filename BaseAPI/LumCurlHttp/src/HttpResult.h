// HttpResult: what one buffered HTTP request came to.

#ifndef LUM_HTTP_RESULT_H
#define LUM_HTTP_RESULT_H

#include <exception>
#include <string>

struct HttpResult {
  HttpResult() : code(-1) {}

  int code;          // the HTTP status; -1 to begin with
  std::string body;  // the response body, or the failure text of a transfer that failed

  // What kept the write callback from appending to `body`. The transfer rethrows it: a result that
  // is returned has none.
  std::exception_ptr failure;
};

#endif  // LUM_HTTP_RESULT_H
