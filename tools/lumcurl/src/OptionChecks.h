// What values the command line accepts. Each check returns "" or what is wrong.

#ifndef LUM_LUMCURL_OPTION_CHECKS_H
#define LUM_LUMCURL_OPTION_CHECKS_H

#include <string>

std::string CheckUrl(const std::string& url);

// The library adds the query itself.
std::string CheckUrlWithoutQuery(const std::string& url);

// Goes into a query, or a path, as it stands.
std::string CheckQueryValue(const std::string& text);
std::string CheckPathPart(const std::string& text);

// HOST or HOST:PORT.
std::string CheckServer(const std::string& server);

// Becomes a header line, or a line of a list.
std::string CheckLine(const std::string& text);

// A numeric IPv4 or IPv6 address.
std::string CheckAddress(const std::string& text);

std::string CheckMac(const std::string& text);

// The beginning of a shell variable's name.
std::string CheckVariablePrefix(const std::string& text);

// A time limit that libcurl takes.
std::string CheckSeconds(const std::string& text);

// Rewrites a rate such as 500K as bytes per second, as far as the library takes it.
std::string ToBytesPerSecond(std::string& text);

#endif  // LUM_LUMCURL_OPTION_CHECKS_H
