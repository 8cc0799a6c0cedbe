#include "Console.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Failure.h"
#include "LumSafeText.h"
#include "Text.h"

namespace {

// A log line may hold a whole reply.
constexpr std::size_t kLongestLine = 4000;

// What is shorter may be part of any word.
constexpr std::size_t kLongSecret = 4;

// What paints errors, and warnings.
constexpr char kErrorColour[] = "\x1b[1;31m";
constexpr char kWarningColour[] = "\x1b[1;33m";

// What paints parts of a JSON document.
constexpr char kName[] = "\x1b[1;34m";
constexpr char kString[] = "\x1b[32m";
constexpr char kNumber[] = "\x1b[36m";
constexpr char kWord[] = "\x1b[35m";

constexpr char kReset[] = "\x1b[0m";

// Whether the text from `begin` to `end` stands by itself, as a value does in a URL, a header line
// or a document.
bool StandsAlone(const std::string& text, std::size_t begin, std::size_t end) {
  return (begin == 0 || std::strchr(" =:\"'\n", text[begin - 1]) != nullptr) &&
         (end == text.size() || std::strchr(" &@#:,;\"'\r\n", text[end]) != nullptr);
}

void WriteError(const std::string& text) {
  // Nobody is left to tell when standard error is gone.
  (void)std::fwrite(text.data(), 1, text.size(), stderr);
  (void)std::fflush(stderr);
}

void WriteData(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(Exit::kFile,
                  std::string("cannot write to standard output: ") + std::strerror(errno));
  }
}

// Data is data, but a terminal obeys some of it.
std::string ForOutput(const std::string& bytes) {
  return isatty(STDOUT_FILENO) == 1 ? LumSafeText(bytes, kLayout) : bytes;
}

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

// `text` in one colour.
std::string Coloured(const char* colour, const std::string& text) {
  return colour + text + kReset;
}

// Whether what is written to the descriptor `fd` has colours. `when` is the value of --color: on
// "auto" where a terminal is that has them, unless NO_COLOR is set (https://no-color.org).
bool HasColours(const std::string& when, int fd) {
  if (when != "auto") {
    return when == "always";
  }
  const std::string terminal = Environment("TERM");
  return isatty(fd) == 1 && Environment("NO_COLOR").empty() && !terminal.empty() &&
         terminal != "dumb";
}

}  // namespace

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

Console::Console(bool verbose, bool quiet, const std::string& colour)
    : m_verbose(verbose),
      m_quiet(quiet),
      m_dataColours(HasColours(colour, STDOUT_FILENO)),
      m_errorColours(HasColours(colour, STDERR_FILENO)) {}

void Console::Data(const std::string& bytes) {
  WriteData(ForOutput(bytes));
}

void Console::Document(const std::string& json) {
  const std::string text = ForOutput(json);
  WriteData(m_dataColours ? ColouredJson(text) : text);
}

void Console::Error(const std::string& text) {
  Line(kErrorColour, "lumcurl:", text);
}

void Console::Warn(const std::string& text) {
  if (!m_quiet) {
    Line(kWarningColour, "lumcurl: warning:", text);
  }
}

void Console::Detail(const std::string& text) {
  if (m_verbose) {
    Line(nullptr, "lumcurl:", text);
  }
}

bool Console::ShowsProgress() const {
  return !m_quiet && isatty(STDERR_FILENO) == 1;
}

void Console::ShowProgress(const std::string& line) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::string text = "\r" + line;
  if (m_progress.size() > line.size()) {
    text.append(m_progress.size() - line.size(), ' ');  // covers what stood there
  }
  m_progress = line;
  WriteError(text);
}

void Console::EndProgress() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_progress.empty()) {
    m_progress.clear();
    WriteError("\n");
  }
}

void Console::Mask(const std::string& secret, const std::string& replacement) {
  if (secret.empty()) {
    return;
  }
  // The longest first: a secret may be part of another.
  const auto place = std::find_if(
      m_masks.begin(), m_masks.end(),
      [&secret](const SecretText& other) { return other.text.size() < secret.size(); });
  m_masks.insert(place, {secret, replacement});
}

void Console::Line(const char* colour, const std::string& head, const std::string& text) {
  const std::string shownHead = m_errorColours && colour != nullptr ? Coloured(colour, head) : head;
  const std::string line = shownHead + " " + Masked(text) + "\n";
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_progress.empty()) {
    WriteError(line);
  } else {
    WriteError("\r" + std::string(m_progress.size(), ' ') + "\r" + line + m_progress);
  }
}

const Console::SecretText* Console::SecretAt(const std::string& text, std::size_t at) const {
  for (const SecretText& secret : m_masks) {
    const std::size_t size = secret.text.size();
    if (text.compare(at, size, secret.text) == 0 &&
        (size >= kLongSecret || StandsAlone(text, at, at + size))) {
      return &secret;
    }
  }
  return nullptr;
}

// Stops at the length that is shown, so that a secret is recognised whole wherever the line is cut
// and a reply of a gigabyte costs nothing.
std::string Console::Masked(const std::string& text) const {
  std::string shown;
  std::size_t at = 0;
  while (at < text.size() && shown.size() <= kLongestLine) {
    if (const SecretText* secret = SecretAt(text, at)) {
      shown += secret->replacement;
      at += secret->text.size();
    } else {
      shown += text[at++];
    }
  }
  return Excerpt(shown, kLongestLine);
}
