// The man page of lumcurl, made from its option table.

#ifndef LUM_LUMCURL_MAN_PAGE_H
#define LUM_LUMCURL_MAN_PAGE_H

#include <string>

namespace CLI {
class App;
}

// lumcurl(1) in troff, with the man macros.
std::string ManPage(const CLI::App& app);

#endif  // LUM_LUMCURL_MAN_PAGE_H
