// Reads /proc/self.

#include "support/ProcessState.h"

#include <dirent.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace lumtest {

namespace {

// The number behind "name:" in /proc/self/status.
std::size_t StatusNumber(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, name.size() + 1, name + ":") == 0) {
      return std::stoul(line.substr(name.size() + 1));
    }
  }
  throw std::runtime_error("no " + name + " in /proc/self/status");
}

}  // namespace

std::size_t ResidentBytes() {
  return StatusNumber("VmRSS") * 1024;
}

std::size_t PeakResidentBytes() {
  return StatusNumber("VmHWM") * 1024;
}

bool ResetPeakResident() {
  std::ofstream file("/proc/self/clear_refs");
  file << "5" << std::flush;
  return file.good();
}

std::vector<std::string> DescribeDescriptors() {
  const auto close = [](DIR* opened) { closedir(opened); };
  const std::unique_ptr<DIR, decltype(close)> directory(opendir("/proc/self/fd"), close);
  if (directory == nullptr) {
    throw std::runtime_error("cannot read /proc/self/fd");
  }
  std::vector<std::string> all;
  const std::string own = std::to_string(dirfd(directory.get()));
  while (const dirent* entry = readdir(directory.get())) {
    const std::string name = entry->d_name;
    char target[PATH_MAX];
    const ssize_t size = readlink(("/proc/self/fd/" + name).c_str(), target, sizeof target);
    if (name != own && size >= 0) {
      all.push_back(name + " " + std::string(target, static_cast<std::size_t>(size)));
    }
  }
  return all;
}

std::size_t OpenDescriptors() {
  return DescribeDescriptors().size();
}

std::size_t ThreadCount() {
  return StatusNumber("Threads");
}

}  // namespace lumtest
