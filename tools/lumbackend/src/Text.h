// Small helpers for text that comes from strangers.
#ifndef LUM_BACKEND_TEXT_H
#define LUM_BACKEND_TEXT_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Two lower-case hex digits for each byte.
std::string ToHex(const unsigned char* data, std::size_t size);

// `size` bytes that nobody can guess, in hex. Throws std::runtime_error.
std::string RandomHex(std::size_t size);

// Undoes percent-encoding. Nothing for a '%' without two hex digits behind it.
std::optional<std::string> DecodePercent(const std::string& text);

// Percent-encodes everything but letters, digits and "-._~".
std::string EncodePercent(const std::string& text);

// True for well-formed UTF-8 (RFC 3629), surrogates and overlong forms excluded.
bool IsUtf8(std::string_view text);

// LumSafeText of `text`, in the access log and on the page: one line, nothing that steers a
// terminal.
std::string Printable(const std::string& text);

// True when names of headers are equal: ASCII letters in any case.
bool SameName(const std::string& a, const std::string& b);

#endif  // LUM_BACKEND_TEXT_H
