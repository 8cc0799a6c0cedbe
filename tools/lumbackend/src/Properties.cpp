// A reader of .properties files: natural lines are joined to logical ones, these are split.
#include "Properties.h"

#include <LumJson.h>

#include <algorithm>
#include <map>
#include <string_view>

#include "Text.h"

namespace {

bool IsBlank(char character) {
  return character == ' ' || character == '\t' || character == '\f';
}

// Hands out the logical lines of a text.
class LogicalLines {
 public:
  explicit LogicalLines(const std::string& text) : m_text(text) {}

  // The next line that is neither empty nor a comment, without leading blanks, continuations
  // joined. False at the end.
  bool Next(std::string& line) {
    while (m_at < m_text.size()) {
      std::string natural = NaturalLine();
      m_first = m_number;
      if (natural.empty() || natural[0] == '#' || natural[0] == '!') {
        continue;
      }
      line.clear();
      while (EndsInContinuation(natural)) {
        natural.pop_back();
        line += natural;
        if (m_at >= m_text.size()) {
          return true;
        }
        natural = NaturalLine();
      }
      line += natural;
      return true;
    }
    return false;
  }

  // Where the last line began, counted from 1.
  std::size_t Number() const { return m_first; }

 private:
  // One line up to its end, which is \n, \r or \r\n, without leading blanks.
  std::string NaturalLine() {
    ++m_number;
    while (m_at < m_text.size() && IsBlank(m_text[m_at])) {
      ++m_at;
    }
    const std::size_t end = std::min(m_text.find_first_of("\r\n", m_at), m_text.size());
    std::string line = m_text.substr(m_at, end - m_at);
    m_at = end;
    if (m_at < m_text.size()) {
      const bool pair = m_text.compare(m_at, 2, "\r\n") == 0;
      m_at += pair ? 2 : 1;
    }
    return line;
  }

  static bool EndsInContinuation(const std::string& line) {
    const std::size_t last = line.find_last_not_of('\\');
    const std::size_t slashes = line.size() - (last == std::string::npos ? 0 : last + 1);
    return slashes % 2 == 1;
  }

  const std::string& m_text;
  std::size_t m_at = 0;
  std::size_t m_number = 0;
  std::size_t m_first = 0;
};

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
      json += "\\u00" + ToHex(&byte, 1);
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
  while (keyEnd < line.size() && line[keyEnd] != '=' && line[keyEnd] != ':' &&
         !IsBlank(line[keyEnd])) {
    keyEnd += line[keyEnd] == '\\' ? 2 : 1;
  }
  keyEnd = std::min(keyEnd, line.size());
  const auto skipBlanks = [&](std::size_t at) {
    while (at < line.size() && IsBlank(line[at])) {
      ++at;
    }
    return at;
  };
  std::size_t value = skipBlanks(keyEnd);
  if (value < line.size() && (line[value] == '=' || line[value] == ':')) {
    value = skipBlanks(value + 1);
  }
  return {keyEnd, value};
}

}  // namespace

std::string ParseProperties(const std::string& text, Properties& properties) {
  properties.clear();
  std::map<std::string, std::size_t> places;
  LogicalLines lines(text);
  std::string line;
  while (lines.Next(line)) {
    const std::string where = "line " + std::to_string(lines.Number()) + ": ";
    if (!IsUtf8(line)) {
      return where + "not UTF-8";
    }
    const auto [keyEnd, valueStart] = SplitLine(line);
    std::string key;
    std::string value;
    if (!Unescape(line.substr(0, keyEnd), key) || !Unescape(line.substr(valueStart), value)) {
      return where + "malformed \\uXXXX";
    }
    const auto [place, isNew] = places.emplace(key, properties.size());
    if (isNew) {
      properties.emplace_back(key, value);
    } else {
      properties[place->second].second = value;
    }
  }
  return {};
}
