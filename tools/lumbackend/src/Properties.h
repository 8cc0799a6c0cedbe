// Java's .properties files.
#ifndef LUM_BACKEND_PROPERTIES_H
#define LUM_BACKEND_PROPERTIES_H

#include <string>
#include <utility>
#include <vector>

// Keys and values in the order of the file; the last value of a key counts, at its first place.
using Properties = std::vector<std::pair<std::string, std::string>>;

// Reads the line-oriented format of java.util.Properties: comments, continued lines, '=', ':' or
// blanks after the key, backslash escapes, \uXXXX with surrogate pairs. The text is UTF-8, as
// configuration centres keep it. Returns "" or what is wrong and in which line; `properties` then
// holds what came before.
std::string ParseProperties(const std::string& text, Properties& properties);

#endif  // LUM_BACKEND_PROPERTIES_H
