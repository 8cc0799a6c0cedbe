// A reader of .properties files: natural lines are joined to logical ones, these are split.
#include "Properties.h"

#include <openssl/asn1.h>

#include <algorithm>
#include <array>
#include <charconv>
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

void AppendUtf8(std::string& text, unsigned long code) {
  std::array<unsigned char, 4> bytes = {};
  const int size = UTF8_putc(bytes.data(), static_cast<int>(bytes.size()), code);
  text.append(bytes.begin(), bytes.begin() + size);
}

// The four hex digits at `at`, or -1.
int CodeUnit(const std::string& text, std::size_t at) {
  unsigned unit = 0;
  const char* begin = text.data() + at;
  const bool four =
      at + 4 <= text.size() && std::from_chars(begin, begin + 4, unit, 16).ptr == begin + 4;
  return four ? static_cast<int>(unit) : -1;
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
    AppendUtf8(decoded, static_cast<unsigned long>(unit));
    return true;
  }
  const int low = text.compare(at, 2, "\\u") == 0 ? CodeUnit(text, at + 2) : -1;
  if (low < 0xDC00 || low > 0xDFFF) {
    return false;
  }
  at += 6;
  AppendUtf8(decoded, static_cast<unsigned long>(0x10000 + ((unit - 0xD800) << 10) + low - 0xDC00));
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
