// A file descriptor that closes itself.
#ifndef LUM_COMMON_FILE_DESCRIPTOR_H
#define LUM_COMMON_FILE_DESCRIPTOR_H

#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

// Owns at most one descriptor. Not for use by several threads at once.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : m_fd(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (m_fd >= 0) {
      ::close(m_fd);
    }
  }

  int Get() const { return m_fd; }
  explicit operator bool() const { return m_fd >= 0; }

 private:
  int m_fd = -1;
};

// Writes all `size` bytes, over as many write(2) calls as it takes. Returns false with errno set.
bool WriteAll(int fd, const char* data, std::size_t size);

// Reads to the end. Nothing, with errno set, when reading fails or there is more than `limit` bytes
// (EFBIG).
std::optional<std::string> ReadAll(int fd, std::size_t limit);

#endif  // LUM_COMMON_FILE_DESCRIPTOR_H
