// The excuses, each found out by hand.

#include "Excuses.h"

#include <algorithm>
#include <iterator>

namespace lumtest {
namespace {

// What a library does wrong when one of its allocations fails.
struct Excuse {
  const char* what;      // part of the verdict's reason
  const char* library;   // "libcrypto.so.3": whose code ended the process, or met the fault
  const char* function;  // of that library, on the stack there; "": none that it exports
};

// docs/torture.md tells about each of them.
constexpr Excuse kExcuses[] = {
    // __archive_errx() calls exit() when a string of an entry cannot grow.
    {"it ended the process", "libarchive.so.13", ""},
    // The URL's query is left out of the request.
    {"with other requests than usual", "libcurl.so.4", "curl_url_get"},
};

}  // namespace

bool IsExcused(const std::string& reason, const FaultRecord& record) {
  const std::vector<Frame> frames = Describe(record.end.depth != 0 ? record.end : record.fault);
  // Whose code it was: abort(), exit() and strdup() do what they are told, and the thread sanitizer
  // stands in for backtrace().
  const auto culprit = std::find_if(frames.begin(), frames.end(), [](const Frame& frame) {
    return frame.library.rfind("lib", 0) == 0 && frame.library.rfind("libc.so", 0) != 0 &&
           frame.library.rfind("libtsan.so", 0) != 0;
  });
  return std::any_of(std::begin(kExcuses), std::end(kExcuses), [&](const Excuse& excuse) {
    const bool on = std::any_of(culprit, frames.end(), [&](const Frame& frame) {
      return frame.library == excuse.library && frame.function == excuse.function;
    });
    return on && culprit->library == excuse.library &&
           reason.find(excuse.what) != std::string::npos;
  });
}

}  // namespace lumtest
