// HttpResult: what one buffered HTTP request came to.

#ifndef LUM_HTTP_RESULT_H
#define LUM_HTTP_RESULT_H

#include <string>

struct HttpResult {
  HttpResult() : code(-1) {}

  int code;          // the HTTP status; -1 to begin with
  std::string body;  // the response body, or the failure text of a transfer that failed
};

#endif  // LUM_HTTP_RESULT_H
