// The same requests as a user of curlpp would write them.

#ifndef LUM_BENCH_CURLPP_REQUESTS_H
#define LUM_BENCH_CURLPP_REQUESTS_H

#include <list>
#include <string>

namespace lumbench {

// The status and the body of the reply.
long CurlppGet(const std::string& url, const std::list<std::string>& lines, std::string& body);
long CurlppPost(const std::string& url, const std::string& data,
                const std::list<std::string>& lines, std::string& body);
long CurlppPut(const std::string& url, const std::string& data, const std::list<std::string>& lines,
               std::string& body);

}  // namespace lumbench

#endif  // LUM_BENCH_CURLPP_REQUESTS_H
