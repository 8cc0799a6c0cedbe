// Java's .properties files.
#ifndef LUM_BACKEND_PROPERTIES_H
#define LUM_BACKEND_PROPERTIES_H

#include <LumJson.h>

#include <string>

// Adds keys and values to an object in the order of the file; the last value of a key counts, at
// its first place. Reads the line-oriented format of java.util.Properties: comments, continued
// lines, '=', ':' or blanks after the key, backslash escapes, \uXXXX with surrogate pairs. The text
// is UTF-8, as configuration centres keep it. Returns "" or what is wrong and in which line.
std::string ReadProperties(const std::string& text, LumJson::Value& properties);

#endif  // LUM_BACKEND_PROPERTIES_H
