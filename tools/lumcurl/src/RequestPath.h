// The path that an upload's signature covers.

#ifndef LUM_LUMCURL_REQUEST_PATH_H
#define LUM_LUMCURL_REQUEST_PATH_H

#include <string>

// The path of `url` as libcurl will send it: percent-encoding as given, "." and ".." resolved,
// without the query; "/" when the URL has none. Throws Failure kUsage for what is no URL.
std::string RequestPath(const std::string& url);

#endif  // LUM_LUMCURL_REQUEST_PATH_H
