// Small helpers for text that comes from strangers.
#ifndef LUM_BACKEND_TEXT_H
#define LUM_BACKEND_TEXT_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// `size` bytes that nobody can guess, in hex. Throws std::runtime_error.
std::string RandomHex(std::size_t size);

// Undoes percent-encoding. Nothing for a '%' without two hex digits behind it.
std::optional<std::string> DecodePercent(const std::string& text);

// Percent-encodes everything but letters, digits and "-._~".
std::string EncodePercent(const std::string& text);

// What stands between separators.
std::vector<std::string> Split(const std::string& text, char separator);

// The first bytes of a text, `size` or so few less that no character is cut.
std::string StartOf(const std::string& text, std::size_t size);

// True for well-formed UTF-8 (RFC 3629), surrogates and overlong forms excluded.
bool IsUtf8(std::string_view text);

#endif  // LUM_BACKEND_TEXT_H
