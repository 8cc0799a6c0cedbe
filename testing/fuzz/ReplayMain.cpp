// Runs a fuzz target over files, and over all files of directories, once each:
//   TARGET PATH...

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "support/Files.h"

namespace {

void Replay(const std::string& path) {
  const std::string bytes = lumtest::ReadFile(path);
  std::fprintf(stderr, "replay: %s\n", path.c_str());  // before the run: it may end here
  // A copy of its own size, so that sanitizers see reads behind its end.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<std::string> paths;
  for (int i = 1; i < count; ++i) {
    const std::string path = arguments[i];
    if (!std::filesystem::is_directory(path)) {
      paths.push_back(path);
      continue;
    }
    for (const std::string& name : lumtest::FilesBelow(path)) {
      paths.push_back(path + "/" + name);
    }
  }
  for (const std::string& path : paths) {
    Replay(path);
  }
  std::printf("replayed %zu inputs\n", paths.size());
  return paths.empty() ? 1 : 0;
}
