// A reader of .properties files: natural lines are joined to logical ones, these are split.
#include "Properties.h"

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <string_view>

#include "Text.h"

namespace {

constexpr char kBlanks[] = " \t\f";
constexpr char kEndsOfKeys[] = "=: \t\f";

// Takes one line off a text, up to its end, which is \n, \r or \r\n, without leading blanks.
std::string NaturalLine(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
  std::string line(text.substr(0, end));
  text.remove_prefix(end);
  text.remove_prefix(text.starts_with("\r\n") ? 2 : std::min<std::size_t>(text.size(), 1));
  return line;
}

// True for a line that the next one continues.
bool IsContinued(const std::string& line) {
  const std::size_t slashes = line.size() - (line.find_last_not_of('\\') + 1);  // npos + 1 is 0
  return slashes % 2 == 1;
}

// Undoes escapes. What these files and JSON have in common, \uXXXX with its surrogate pairs among
// it, is left to the reader of JSON.
bool Unescape(const std::string& text, std::string& plain) {
  std::string json;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escaped = text[i] == '\\';
    if (escaped && ++i == text.size()) {
      break;  // a backslash at the end of the file stands for nothing
    }
    const auto byte = static_cast<unsigned char>(text[i]);
    if (escaped && std::string_view("tnrfu").find(text[i]) != std::string_view::npos) {
      json += {'\\', text[i]};
    } else if (byte < ' ' || byte == '"' || byte == '\\') {
      json += "\\u00" + boost::algorithm::hex(std::string(1, text[i]));
    } else {
      json += text[i];
    }
  }
  LumJson::Value value;
  const bool good = value.Parse('"' + json + '"');
  plain = value.AsString();
  return good;
}

// Where the key ends and where the value starts.
std::pair<std::size_t, std::size_t> SplitLine(const std::string& line) {
  std::size_t keyEnd = 0;
  while (keyEnd < line.size() && std::string_view(kEndsOfKeys).find(line[keyEnd]) == line.npos) {
    keyEnd += line[keyEnd] == '\\' ? 2 : 1;
  }
  keyEnd = std::min(keyEnd, line.size());
  const auto skipBlanks = [&](std::size_t at) {
    return std::min(line.find_first_not_of(kBlanks, at), line.size());
  };
  std::size_t value = skipBlanks(keyEnd);
  if (value < line.size() && (line[value] == '=' || line[value] == ':')) {
    value = skipBlanks(value + 1);
  }
  return {keyEnd, value};
}

}  // namespace

std::string ReadProperties(const std::string& text, LumJson::Value& properties) {
  std::string_view rest = text;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const std::string where = "line " + std::to_string(number) + ": ";
    std::string line = NaturalLine(rest);
    if (line.empty() || line[0] == '#' || line[0] == '!') {
      continue;
    }
    for (; IsContinued(line) && !rest.empty(); ++number) {
      line.pop_back();
      line += NaturalLine(rest);
    }
    if (!IsUtf8(line)) {
      return where + "not UTF-8";
    }
    const auto [keyEnd, valueStart] = SplitLine(line);
    std::string key;
    std::string value;
    if (!Unescape(line.substr(0, keyEnd), key) || !Unescape(line.substr(valueStart), value)) {
      return where + "malformed \\uXXXX";
    }
    properties.AddJsonValue(key, value);
  }
  return {};
}
