// Reading and writing to the last byte.
#include "FileDescriptor.h"

#include <array>
#include <cerrno>

bool WriteAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

std::optional<std::string> ReadAll(int fd, std::size_t limit) {
  std::string text;
  std::array<char, 16384> piece = {};
  for (;;) {
    const ssize_t count = ::read(fd, piece.data(), piece.size());
    if (count == 0) {
      return text;
    }
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return std::nullopt;
    }
    if (static_cast<std::size_t>(count) > limit - text.size()) {
      errno = EFBIG;
      return std::nullopt;
    }
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
}
