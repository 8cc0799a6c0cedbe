// The shell completions of lumcurl, made from its option table.

#ifndef LUM_LUMCURL_COMPLETION_H
#define LUM_LUMCURL_COMPLETION_H

#include <string>

namespace CLI {
class App;
}

// A script for one of kShells; it needs nothing but that shell.
std::string Completion(const std::string& shell, const CLI::App& app);

#endif  // LUM_LUMCURL_COMPLETION_H
