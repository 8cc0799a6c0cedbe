// Reads /proc.

#include "support/ProcessState.h"

#include <filesystem>
#include <fstream>
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
  namespace fs = std::filesystem;
  std::vector<std::string> all;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code closed;
    const fs::path target = fs::read_symlink(entry.path(), closed);
    // The iterator's own is none of the process's.
    if (!closed && target != "/proc/" + std::to_string(getpid()) + "/fd") {
      all.push_back(entry.path().filename().string() + " " + target.string());
    }
  }
  return all;
}

std::size_t OpenDescriptors() {
  return DescribeDescriptors().size();
}

}  // namespace lumtest
