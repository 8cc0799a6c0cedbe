// What lumcurl writes.

#include "Console.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Failure.h"
#include "LumSafeText.h"
#include "Text.h"

namespace {

// A log line may hold a whole reply.
constexpr std::size_t kLongestLine = 4000;

// Hiding a letter or two would hide everything.
constexpr std::size_t kShortestSecret = 4;

void WriteError(const std::string& text) {
  // Nobody is left to tell when standard error is gone.
  (void)std::fwrite(text.data(), 1, text.size(), stderr);
  (void)std::fflush(stderr);
}

}  // namespace

Console::Console(bool verbose, bool quiet) : m_verbose(verbose), m_quiet(quiet) {}

Console::~Console() = default;

void Console::Data(const std::string& bytes) {
  const std::string text = isatty(STDOUT_FILENO) == 1 ? LumSafeText(bytes, kLayout) : bytes;
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(Exit::kFile,
                  std::string("cannot write to standard output: ") + std::strerror(errno));
  }
}

void Console::Error(const std::string& text) {
  Line(text);
}

void Console::Warn(const std::string& text) {
  if (!m_quiet) {
    Line("warning: " + text);
  }
}

void Console::Detail(const std::string& text) {
  if (m_verbose) {
    Line(text);
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
  if (secret.size() < kShortestSecret) {
    return;
  }
  // The longest first: a secret may be part of another.
  const auto place = std::find_if(m_masks.begin(), m_masks.end(), [&secret](const auto& mask) {
    return mask.first.size() < secret.size();
  });
  m_masks.insert(place, {secret, replacement});
}

void Console::Line(const std::string& text) {
  const std::string line = Masked(text);
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_progress.empty()) {
    WriteError("lumcurl: " + line + "\n");
  } else {
    WriteError("\r" + std::string(m_progress.size(), ' ') + "\rlumcurl: " + line + "\n" +
               m_progress);
  }
}

// Stops at the length that is shown, so that a secret is recognised whole wherever the line is cut
// and a reply of a gigabyte costs nothing.
std::string Console::Masked(const std::string& text) const {
  std::string shown;
  std::size_t at = 0;
  while (at < text.size() && shown.size() < kLongestLine) {
    const auto mask = std::find_if(m_masks.begin(), m_masks.end(), [&text, at](const auto& entry) {
      return text.compare(at, entry.first.size(), entry.first) == 0;
    });
    if (mask != m_masks.end()) {
      shown += mask->second;
      at += mask->first.size();
    } else {
      shown += text[at++];
    }
  }
  if (at == text.size()) {
    return LumSafeText(shown);
  }
  return LumSafeText(shown.substr(0, WholeCharacters(shown))) + " ... (" +
         std::to_string(text.size()) + " bytes)";
}
