// Small helpers over text: escaping for terminals, masking of secrets, sizes and times.

#ifndef LUM_LUMCURL_TEXT_H
#define LUM_LUMCURL_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

// What LumSafeText allows where data stands on a terminal.
constexpr char kLayout[] = "\n\t";

// LumSafeText with kLayout, of a text that comes piece by piece. The part of a character that it
// holds back between pieces comes with the next piece or with Flush.
class TerminalEscaper {
 public:
  std::string Feed(const char* bytes, std::size_t size);
  std::string Flush();

 private:
  std::string m_held;
};

// The environment variable of that name; "" when it is not set.
std::string Environment(const char* name);

// ASCII letters as small ones.
std::string LowerCase(std::string text);

// The first `limit` bytes without half a character, and "..." where there were more.
std::string Shortened(const std::string& text, std::size_t limit);

// LumSafeText of that.
std::string Excerpt(const std::string& text, std::size_t limit);

// A path between quotes, for messages; a very long one is cut.
std::string Quoted(const std::string& path);

// Whether a header or member of this name usually carries a secret ("Authorization",
// "X-Auth-Token", "password", "X-Amz-Signature").
bool NamesSecret(const std::string& name);

// The secrets that a URL carries as it stands: the password of its user information and the values
// of query parameters whose name says secret.
std::vector<std::string> SecretsOfUrl(const std::string& url);

// The value in "Name: value" when the name says secret; "": it does not, or there is none.
std::string SecretOfHeader(const std::string& line);

// "Name: value" with such a value hidden.
std::string MaskedHeader(const std::string& line);

// "12 B", "1.5 KiB", "2.0 GiB".
std::string HumanBytes(double bytes);

// "59 s", "2 min 5 s", "1 h 3 min".
std::string HumanTime(double seconds);

#endif  // LUM_LUMCURL_TEXT_H
