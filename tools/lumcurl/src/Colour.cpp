#include "Colour.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "Text.h"

namespace {

constexpr char kReset[] = "\x1b[0m";
constexpr char kName[] = "\x1b[1;34m";
constexpr char kString[] = "\x1b[32m";
constexpr char kNumber[] = "\x1b[36m";
constexpr char kWord[] = "\x1b[35m";

// Where the string that begins at `begin` is over: behind its closing quote.
std::size_t StringEnd(const std::string& json, std::size_t begin) {
  std::size_t at = begin + 1;
  while (at < json.size() && json[at] != '"') {
    at += json[at] == '\\' ? 2 : 1;
  }
  return std::min(at + 1, json.size());
}

bool IsOfNumberOrWord(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '+' || c == '.';
}

}  // namespace

bool HasColours(const std::string& when, int fd) {
  if (when != "auto") {
    return when == "always";
  }
  const std::string terminal = Environment("TERM");
  return isatty(fd) == 1 && Environment("NO_COLOR").empty() && !terminal.empty() &&
         terminal != "dumb";
}

std::string Coloured(const char* colour, const std::string& text) {
  return colour + text + kReset;
}

std::string ColouredJson(const std::string& json) {
  std::string out;
  std::size_t at = 0;
  while (at < json.size()) {
    const char first = json[at];
    const std::size_t begin = at;
    const char* colour = nullptr;
    if (first == '"') {
      at = StringEnd(json, begin);
      colour = at < json.size() && json[at] == ':' ? kName : kString;
    } else if (IsOfNumberOrWord(first)) {
      while (at < json.size() && IsOfNumberOrWord(json[at])) {
        ++at;
      }
      colour = std::isalpha(static_cast<unsigned char>(first)) != 0 ? kWord : kNumber;
    }
    if (colour != nullptr) {
      out += Coloured(colour, json.substr(begin, at - begin));
    } else {
      out += json[at++];
    }
  }
  return out;
}
