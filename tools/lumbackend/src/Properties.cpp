// A reader of .properties files: natural lines are joined to logical ones, these are split.
#include "Properties.h"

#include <algorithm>
#include <map>

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

void AppendUtf8(std::string& text, unsigned code) {
  const auto byte = [&](unsigned bits) { text += static_cast<char>(bits); };
  if (code < 0x80) {
    byte(code);
  } else if (code < 0x800) {
    byte(0xC0 | code >> 6);
    byte(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    byte(0xE0 | code >> 12);
    byte(0x80 | (code >> 6 & 0x3F));
    byte(0x80 | (code & 0x3F));
  } else {
    byte(0xF0 | code >> 18);
    byte(0x80 | (code >> 12 & 0x3F));
    byte(0x80 | (code >> 6 & 0x3F));
    byte(0x80 | (code & 0x3F));
  }
}

// The four hex digits at `at`, or -1.
int CodeUnit(const std::string& text, std::size_t at) {
  if (at + 4 > text.size()) {
    return -1;
  }
  int unit = 0;
  for (std::size_t i = at; i < at + 4; ++i) {
    const std::string digits = "0123456789abcdef";
    const std::size_t digit = digits.find(
        static_cast<char>(text[i] >= 'A' && text[i] <= 'F' ? text[i] + ('a' - 'A') : text[i]));
    if (digit == std::string::npos) {
      return -1;
    }
    unit = unit * 16 + static_cast<int>(digit);
  }
  return unit;
}

// Decodes the \uXXXX whose digits begin at `at`, with its second half where it is the first of a
// surrogate pair, and moves `at` past it. False for anything else.
bool Unicode(const std::string& text, std::size_t& at, std::string& decoded) {
  const int unit = CodeUnit(text, at);
  if (unit < 0 || (unit >= 0xDC00 && unit <= 0xDFFF)) {
    return false;
  }
  at += 4;
  if (unit < 0xD800 || unit > 0xDBFF) {
    AppendUtf8(decoded, static_cast<unsigned>(unit));
    return true;
  }
  const int low = text.compare(at, 2, "\\u") == 0 ? CodeUnit(text, at + 2) : -1;
  if (low < 0xDC00 || low > 0xDFFF) {
    return false;
  }
  at += 6;
  AppendUtf8(decoded, 0x10000u + (static_cast<unsigned>(unit - 0xD800) << 10) +
                          static_cast<unsigned>(low - 0xDC00));
  return true;
}

bool Unescape(const std::string& text, std::string& plain) {
  plain.clear();
  for (std::size_t i = 0; i < text.size();) {
    const char character = text[i++];
    if (character != '\\') {
      plain += character;
      continue;
    }
    if (i == text.size()) {
      break;  // a backslash at the end of the file stands for nothing
    }
    const char escaped = text[i++];
    switch (escaped) {
      case 't':
        plain += '\t';
        break;
      case 'n':
        plain += '\n';
        break;
      case 'r':
        plain += '\r';
        break;
      case 'f':
        plain += '\f';
        break;
      case 'u':
        if (!Unicode(text, i, plain)) {
          return false;
        }
        break;
      default:
        plain += escaped;
    }
  }
  return true;
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
