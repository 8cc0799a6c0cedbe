// The shell completion of lumcurl, made from its option table.

#ifndef LUM_LUMCURL_COMPLETION_H
#define LUM_LUMCURL_COMPLETION_H

#include <string>

namespace CLI {
class App;
}

// A script for bash to source; it needs nothing but bash.
std::string BashCompletion(const CLI::App& app);

#endif  // LUM_LUMCURL_COMPLETION_H
