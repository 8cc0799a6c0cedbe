// What lumcurl writes: data on standard output, everything else on standard error.

#ifndef LUM_LUMCURL_CONSOLE_H
#define LUM_LUMCURL_CONSOLE_H

#include <mutex>
#include <string>
#include <vector>

// Lines on standard error are "lumcurl: text", one line each, made safe by LumSafeText and the
// secrets given to Mask replaced.
//
// Thread safety: every member but Mask may be called from any thread; Mask before other threads.
class Console {
 public:
  // `colour` is the value of --color.
  Console(bool verbose, bool quiet, const std::string& colour = "never");

  // Data for standard output, made safe by LumSafeText when that is a terminal. Throws Failure when
  // it cannot be written.
  void Data(const std::string& bytes);

  // The same for a JSON document, which colours make readable.
  void Document(const std::string& json);

  void Error(const std::string& text);
  void Warn(const std::string& text);    // unless quiet
  void Detail(const std::string& text);  // when verbose

  // Standard error is a terminal and the user did not ask for quiet.
  bool ShowsProgress() const;

  // Replaces the progress line, which stands at the bottom until EndProgress makes it an ordinary
  // line.
  void ShowProgress(const std::string& line);
  void EndProgress();

  // Hides `secret` in every later line. One of fewer than four bytes is hidden only where it stands
  // alone, as the value of something: else it would hide parts of every word.
  void Mask(const std::string& secret, const std::string& replacement = "***");

 private:
  struct SecretText {
    std::string text;
    std::string replacement;
  };
  void Line(const char* colour, const std::string& head, const std::string& text);
  const SecretText* SecretAt(const std::string& text, std::size_t at) const;
  std::string Masked(const std::string& text) const;

  const bool m_verbose;
  const bool m_quiet;
  const bool m_dataColours;
  const bool m_errorColours;
  std::mutex m_mutex;  // guards standard error and the progress line
  std::string m_progress;
  std::vector<SecretText> m_masks;  // longest first
};

// A JSON document with colours: names, strings, numbers, and the words true, false and null.
std::string ColouredJson(const std::string& json);

#endif  // LUM_LUMCURL_CONSOLE_H
