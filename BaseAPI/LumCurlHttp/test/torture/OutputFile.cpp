// A descriptor led into memory.

#include "OutputFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace lumtest {

OutputFile::OutputFile(int descriptor) : m_descriptor(descriptor) {
  (void)std::fflush(stdout);
  m_saved = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
  const int memory = memfd_create("output", MFD_CLOEXEC);
  if (m_saved < 0 || memory < 0 || dup2(memory, descriptor) < 0) {
    throw std::runtime_error("cannot lead a descriptor into memory");
  }
  close(memory);
}

OutputFile::~OutputFile() {
  (void)std::fflush(stdout);
  (void)dup2(m_saved, m_descriptor);
  close(m_saved);
}

std::string OutputFile::Take() {
  (void)std::fflush(stdout);
  struct stat status = {};
  if (fstat(m_descriptor, &status) != 0) {
    throw std::runtime_error("an output was closed");
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  if (pread(m_descriptor, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error("cannot read an output");
  }
  if (!text.empty() && (ftruncate(m_descriptor, 0) != 0 || lseek(m_descriptor, 0, SEEK_SET) != 0)) {
    throw std::runtime_error("cannot empty an output");
  }
  return text;
}

}  // namespace lumtest
