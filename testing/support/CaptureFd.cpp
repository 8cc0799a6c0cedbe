// Points a descriptor at an unnamed file for a while.

#include "support/CaptureFd.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

namespace lumtest {

namespace {

void Flush(int descriptor) {
  if (descriptor == 1) {
    std::cout.flush();
    static_cast<void>(std::fflush(stdout));
  } else if (descriptor == 2) {
    std::cerr.flush();
    std::clog.flush();
    static_cast<void>(std::fflush(stderr));
  }
}

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Reads by offset: the place where writing goes on is not touched.
std::string ReadAll(int file) {
  std::string text;
  char piece[16 * 1024];
  ssize_t got;
  while ((got = pread(file, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0) {
    text.append(piece, static_cast<std::size_t>(got));
  }
  if (got < 0) {
    Fail("pread");
  }
  return text;
}

}  // namespace

CaptureFd::CaptureFd(int descriptor) : m_descriptor(descriptor) {
  Flush(m_descriptor);
  m_saved = fcntl(m_descriptor, F_DUPFD_CLOEXEC, 3);
  m_file = memfd_create("lumtest-capture", MFD_CLOEXEC);
  // Appending, as several processes may write at a time.
  if (m_saved < 0 || m_file < 0 || fcntl(m_file, F_SETFL, O_APPEND) != 0 ||
      dup2(m_file, m_descriptor) < 0) {
    const int error = errno;
    close(m_saved);
    close(m_file);
    errno = error;
    Fail("capture");
  }
}

CaptureFd::~CaptureFd() {
  if (m_saved >= 0) {
    Flush(m_descriptor);
    dup2(m_saved, m_descriptor);
    close(m_saved);
    close(m_file);
  }
}

std::string CaptureFd::Text() const {
  if (m_saved < 0) {
    return m_text;
  }
  Flush(m_descriptor);
  return ReadAll(m_file);
}

std::string CaptureFd::Stop() {
  if (m_saved >= 0) {
    m_text = Text();
    if (dup2(m_saved, m_descriptor) < 0) {
      Fail("end of capture");
    }
    close(m_saved);
    close(m_file);
    m_saved = -1;
  }
  return m_text;
}

}  // namespace lumtest
