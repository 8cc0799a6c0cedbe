// Runs a fuzz target over files, and over all files of directories, once each:
//   TARGET PATH...

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Fuzz.h"

namespace {

std::vector<std::string> FilesAt(const std::string& path) {
  if (!std::filesystem::is_directory(path)) {
    return {path};
  }
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void Replay(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  file.exceptions(std::ios::badbit | std::ios::failbit);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::fprintf(stderr, "replay: %s\n", path.c_str());  // before the run: it may end here
  // A copy of its own size, so that sanitizers see reads behind its end.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int count, char** arguments) {
  try {
    std::size_t replayed = 0;
    for (int i = 1; i < count; ++i) {
      for (const std::string& path : FilesAt(arguments[i])) {
        Replay(path);
        ++replayed;
      }
    }
    std::printf("replayed %zu inputs\n", replayed);
    return replayed == 0 ? 1 : 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "replay: %s\n", failure.what());
    return 1;
  }
}
