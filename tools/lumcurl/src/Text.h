// Small helpers over text: escaping for terminals, masking of secrets, wrapping of help.

#ifndef LUM_LUMCURL_TEXT_H
#define LUM_LUMCURL_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

// Rewrites bytes that could steer a terminal: C0 controls and DEL as \n, \t, \r or \xHH, and C1
// controls in their UTF-8 form (0xC2 0x80 to 0xC2 0x9F) as two \xHH. It may be fed piece by piece;
// the one byte it may hold back between pieces comes with the next piece or with Flush.
class TerminalEscaper {
 public:
  // With `keepLines`, line feeds and tabs pass.
  explicit TerminalEscaper(bool keepLines) : m_keepLines(keepLines) {}

  std::string Feed(const char* bytes, std::size_t size);
  std::string Flush();

 private:
  bool m_keepLines;
  bool m_lead = false;  // 0xC2 came last
};

// A whole text as one line without control bytes.
std::string OneLine(const std::string& text);

// OneLine of the first `limit` bytes, with a remark when there were more.
std::string Excerpt(const std::string& text, std::size_t limit);

// A path between quotes, for messages; a very long one is cut.
std::string Quoted(const std::string& path);

// Whether a header or member of this name usually carries a secret ("Authorization",
// "X-Auth-Token", "password", "X-Amz-Signature").
bool NamesSecret(const std::string& name);

// The secrets that a URL carries as it stands: the password of its user information and the values
// of query parameters whose name says secret.
std::vector<std::string> SecretsOfUrl(const std::string& url);

// "Name: value" with the value hidden when the name says secret.
std::string MaskedHeader(const std::string& line);

// "12 B", "1.5 KiB", "2.0 GiB".
std::string HumanBytes(double bytes);

// `text` in lines of at most `width` columns, each after the first indented; lines that begin with
// a blank stand as they are.
std::string Wrap(const std::string& text, std::size_t width, std::size_t indent);

// The part of a command's footer before its example, and the example's lines.
struct Footer {
  std::string notes;
  std::string example;
};
Footer SplitFooter(const std::string& footer);

#endif  // LUM_LUMCURL_TEXT_H
