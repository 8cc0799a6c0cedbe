// Colours for terminals.

#ifndef LUM_LUMCURL_COLOUR_H
#define LUM_LUMCURL_COLOUR_H

#include <string>

// Whether what is written to the descriptor `fd` has colours. `when` is the value of --color: on
// "auto" where a terminal is that has them, unless NO_COLOR is set (https://no-color.org).
bool HasColours(const std::string& when, int fd);

// What paints errors, and warnings.
constexpr char kErrorColour[] = "\x1b[1;31m";
constexpr char kWarningColour[] = "\x1b[1;33m";

// `text` in one colour.
std::string Coloured(const char* colour, const std::string& text);

// A JSON document with colours: names, strings, numbers, and the words true, false and null.
std::string ColouredJson(const std::string& json);

#endif  // LUM_LUMCURL_COLOUR_H
