// What the sources of this library share: the failure that they throw among themselves, and file
// descriptors that close themselves.

#ifndef LUM_FILE_SYS_POSIX_H
#define LUM_FILE_SYS_POSIX_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace lumfilesys {

// Why an operation cannot go on. It never leaves the library: the public operations turn it into
// errno and -1.
struct Failure {
  int error;  // an errno value
};

[[noreturn]] inline void Fail(int error) {
  throw Failure{error};
}

// Owns a file descriptor. Not thread-safe.
class Descriptor {
 public:
  Descriptor() = default;
  // Takes over what open(2) or a relative of it has returned; -1 throws what errno says.
  explicit Descriptor(int fd) : m_fd(fd) {
    if (fd < 0) {
      Fail(errno);
    }
  }
  Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  ~Descriptor() {
    if (m_fd >= 0) {
      close(m_fd);
    }
  }

  int Get() const { return m_fd; }
  int Release() { return std::exchange(m_fd, -1); }

 private:
  int m_fd = -1;
};

inline struct stat StatusOf(const Descriptor& descriptor) {
  struct stat status;
  if (fstat(descriptor.Get(), &status) != 0) {
    Fail(errno);
  }
  return status;
}

}  // namespace lumfilesys

#endif  // LUM_FILE_SYS_POSIX_H
