// Text from elsewhere, made fit to be shown: what could steer a terminal, break a line or turn the
// direction of writing is written as \xHH, so that a reader sees it and nothing obeys it.

#ifndef LUM_SAFE_TEXT_H
#define LUM_SAFE_TEXT_H

#include <cstddef>
#include <string>

// Thread safety: every function may be called from any thread at any time.

// Returns how many of the `size` bytes at `text` may be shown as they are, counted up to the first
// that may not. Unfit are
//  - C0 controls, DEL and C1 controls, but the C0 controls that the string `allowed` names, such as
//    "\n\t"; a zero byte always is,
//  - the marks of writing direction U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069,
//  - the line separator U+2028 and the paragraph separator U+2029,
//  - bytes that are no well-formed UTF-8 (RFC 3629).
// No byte of an unfit character may be shown: what follows its first byte is no well-formed UTF-8
// either.
__attribute__((visibility("default"))) std::size_t LumSafeLength(const char* text, std::size_t size,
                                                                 const char* allowed) noexcept;

// Appends `text` to `out`, a std::string or a buffer like it, each unfit byte as \xHH. Throws what
// `out` throws.
template <typename Buffer>
void LumAppendSafeText(const char* text, std::size_t size, const char* allowed, Buffer& out) {
  const char* const digits = "0123456789abcdef";
  for (std::size_t at = 0; at < size; ++at) {
    const std::size_t safe = LumSafeLength(text + at, size - at, allowed);
    out.append(text + at, text + at + safe);
    at += safe;
    if (at < size) {
      const unsigned int byte = static_cast<unsigned char>(text[at]);
      const char escape[] = {'\\', 'x', digits[byte >> 4], digits[byte & 15U]};
      out.append(escape, escape + sizeof escape);
    }
  }
}

// `text` with each unfit byte as \xHH.
inline std::string LumSafeText(const std::string& text, const char* allowed = "") {
  std::string safe;
  safe.reserve(text.size());
  LumAppendSafeText(text.data(), text.size(), allowed, safe);
  return safe;
}

#endif  // LUM_SAFE_TEXT_H
