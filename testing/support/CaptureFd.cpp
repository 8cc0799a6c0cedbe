// Points a descriptor at an unnamed file for a while.

#include "support/CaptureFd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>
#include <utility>

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

}  // namespace

CaptureFd::CaptureFd(int descriptor)
    : m_descriptor(descriptor),
      m_saved(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)),
      m_file(std::in_place) {
  Flush(m_descriptor);
  if (!m_saved || dup2(m_file->Get(), m_descriptor) < 0) {
    throw std::system_error(errno, std::generic_category(), "capture");
  }
}

CaptureFd::~CaptureFd() {
  if (m_saved) {
    Flush(m_descriptor);
    dup2(m_saved.Get(), m_descriptor);
  }
}

std::string CaptureFd::Text() const {
  if (!m_file) {
    return m_text;
  }
  Flush(m_descriptor);
  return m_file->Text();
}

std::string CaptureFd::Take() {
  std::string text = Text();
  if (ftruncate(m_file->Get(), 0) != 0) {
    throw std::system_error(errno, std::generic_category(), "capture");
  }
  return text;
}

std::string CaptureFd::Stop() {
  m_text = Text();
  if (m_saved) {
    dup2(m_saved.Get(), m_descriptor);
    m_saved = FileDescriptor();
    m_file.reset();
  }
  return m_text;
}

}  // namespace lumtest
