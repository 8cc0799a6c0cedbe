// Reads /proc.

#include "support/ProcessState.h"

#include <dirent.h>

#include <climits>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace lumtest {

namespace {

// The kibibytes behind "name:" in a process's status, as bytes.
std::size_t StatusBytes(pid_t process, const std::string& name) {
  const std::string path = "/proc/" + std::to_string(process) + "/status";
  std::ifstream status(path);
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, name.size() + 1, name + ":") == 0) {
      return std::stoul(line.substr(name.size() + 1)) * 1024;
    }
  }
  throw std::runtime_error("no " + name + " in " + path);
}

}  // namespace

std::size_t ResidentBytes(pid_t process) {
  return StatusBytes(process, "VmRSS");
}

std::size_t PeakResidentBytes(pid_t process) {
  return StatusBytes(process, "VmHWM");
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

}  // namespace lumtest
