// The product's requests as a user of libcurl alone would write them: the same options in the same
// order, a fresh handle and so a fresh connection each, the reply in a string.

#ifndef LUM_BENCH_BARE_H
#define LUM_BENCH_BARE_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace lumbench {

struct Reply {
  long status = -1;
  std::string body;
};

using Lines = std::vector<const char*>;

// The general client's.
Reply BareGet(const char* url);
Reply BarePost(const char* url, const std::string& body);

// The service client's, with the caller's header lines.
Reply BareServiceGet(const char* url, const Lines& lines);
Reply BareServicePost(const char* url, const char* body, std::size_t size, const Lines& lines);
Reply BareServicePut(const char* url, const std::string& body, const Lines& lines);

// The configuration client's.
Reply BareFetch(const char* url);

// The general client's download into an open file; false when it failed.
bool BareDownload(const char* url, FILE* file);

// libcurl's write callback of the buffered ones; `user` is the Reply.
std::size_t AppendToReply(char* data, std::size_t size, std::size_t count, void* user);

}  // namespace lumbench

#endif  // LUM_BENCH_BARE_H
