// The excuses, each found out by hand.

#include "Excuses.h"

#include <algorithm>

namespace lumtest {
namespace {

// docs/torture.md tells about each of them.
constexpr Excuse kExcuses[] = {
    // __archive_errx() calls exit() when a string of an entry cannot grow.
    {"it ended the process", "libarchive.so.13", ""},
    // The URL's query is left out of the request.
    {"with other requests than usual", "libcurl.so.4", "curl_url_get"},
};

}  // namespace

const Excuse* FindExcuse(const std::string& reason, const FaultRecord& record) {
  const std::vector<Frame> frames = Describe(record.end.depth != 0 ? record.end : record.fault);
  // Whose code it was: abort(), exit() and strdup() do what they are told, and the thread sanitizer
  // stands in for backtrace().
  const auto culprit = std::find_if(frames.begin(), frames.end(), [](const Frame& frame) {
    return frame.library.rfind("lib", 0) == 0 && frame.library.rfind("libc.so", 0) != 0 &&
           frame.library.rfind("libtsan.so", 0) != 0;
  });
  for (const Excuse& excuse : kExcuses) {
    const std::string function = excuse.function;
    const bool on = std::any_of(culprit, frames.end(), [&](const Frame& frame) {
      return frame.library == excuse.library && frame.function == function;
    });
    if (on && culprit->library == excuse.library && reason.find(excuse.what) != std::string::npos) {
      return &excuse;
    }
  }
  return nullptr;
}

}  // namespace lumtest
