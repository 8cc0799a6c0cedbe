// The pass phrase of a client's private key: a fixed buffer, NUL-padded.

#ifndef LUM_KEY_PASSWORD_H
#define LUM_KEY_PASSWORD_H

#include <cstddef>

#include "CurlEasy.h"

namespace lumhttp {

constexpr std::size_t kKeyPasswordSize = 2048;
using KeyPassword = unsigned char[kKeyPasswordSize];

// Fills the whole buffer with zeros.
void WipeKeyPassword(KeyPassword& buffer);

// Copies `length` bytes of `text` to the start of the buffer; what stands behind them stays. True,
// with the buffer untouched, when `length` is negative. False when it is above the buffer's size,
// which leaves the buffer untouched, and when the copy reports a negative result.
bool StoreKeyPassword(KeyPassword& buffer, const unsigned char* text, int length);

// Hands the pass phrase to CURLOPT_KEYPASSWD, which copies it. A phrase that fills the buffer to
// its last byte gets a terminator on the way.
void SetKeyPasswordOption(const EasyHandle& handle, const KeyPassword& buffer);

}  // namespace lumhttp

#endif  // LUM_KEY_PASSWORD_H
