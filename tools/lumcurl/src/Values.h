// The values that options take. Each function returns "", or what is wrong with the text.

#ifndef LUM_LUMCURL_VALUES_H
#define LUM_LUMCURL_VALUES_H

#include <string>

std::string CheckUrl(const std::string& url);

// The library adds the query itself.
std::string CheckUrlWithoutQuery(const std::string& url);

// Of what goes into a query, or a path, as it stands.
std::string CheckQueryValue(const std::string& text);
std::string CheckPathPart(const std::string& text);

// HOST or HOST:PORT.
std::string CheckServer(const std::string& server);

// Of what becomes a header line, or a line of a list.
std::string CheckLine(const std::string& text);

std::string CheckAddress(const std::string& text);
std::string CheckMac(const std::string& text);
std::string CheckVariablePrefix(const std::string& text);
std::string CheckSeconds(const std::string& text);

// Rewrites a rate such as 500K as bytes per second, as far as the library takes it.
std::string ToBytesPerSecond(std::string& text);

#endif  // LUM_LUMCURL_VALUES_H
