// Makes the files that are packed and sent: 200 log files, 20,000 small ones, one of a gigabyte.
//
//   LumBenchFiles DIRECTORY SHARE     1/SHARE of about 1.4 GB

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>

namespace {

namespace fs = std::filesystem;

// Lines as a service's log holds them: a clock that runs, few hosts and modules, numbers that vary.
std::string LogText(std::size_t size) {
  static const char* const kModules[] = {"transfer", "engine", "report", "token", "storage.cache"};
  static const char* const kLevels[] = {"INFO ", "INFO ", "INFO ", "DEBUG", "WARN ", "ERROR"};
  static const char* const kObjects[] = {"orders", "devices", "reports", "images"};
  std::mt19937 random(7);
  std::string text;
  text.reserve(size + 512);
  std::uint64_t microseconds = 0;
  while (text.size() < size) {
    microseconds += random() % 20000;
    const auto pick = [&](std::uint32_t count) { return random() % count; };
    char line[512];
    int length =
        std::snprintf(line, sizeof line, "2024-03-%02u %02u:%02u:%02u.%06u [node-%02u] %s %s: ",
                      static_cast<unsigned>(microseconds / 86400000000U % 28 + 1),
                      static_cast<unsigned>(microseconds / 3600000000U % 24),
                      static_cast<unsigned>(microseconds / 60000000U % 60),
                      static_cast<unsigned>(microseconds / 1000000U % 60),
                      static_cast<unsigned>(microseconds % 1000000U),
                      static_cast<unsigned>(pick(24)), kLevels[pick(6)], kModules[pick(5)]);
    text.append(line, static_cast<std::size_t>(length));
    switch (pick(3)) {
      case 0:
        length = std::snprintf(
            line, sizeof line, "request %u finished status=%u time=%ums bytes=%u url=/v1/%s/%u\n",
            static_cast<unsigned>(pick(1U << 20)), pick(8) == 0 ? 404U : 200U,
            static_cast<unsigned>(pick(2000)), static_cast<unsigned>(pick(1U << 16)),
            kObjects[pick(4)], static_cast<unsigned>(pick(1U << 20)));
        break;
      case 1:
        length =
            std::snprintf(line, sizeof line, "queue length %u, pending %u, retry after %u ms\n",
                          static_cast<unsigned>(pick(64)), static_cast<unsigned>(pick(16)),
                          static_cast<unsigned>(pick(10) * 100));
        break;
      default:
        length = std::snprintf(line, sizeof line, "heartbeat seq=%u lag=%uus peers=%u zone=%s\n",
                               static_cast<unsigned>(text.size() / 100),
                               static_cast<unsigned>(pick(900)), static_cast<unsigned>(pick(5)),
                               kObjects[pick(4)]);
        break;
    }
    text.append(line, static_cast<std::size_t>(length));
  }
  text.resize(size);
  return text;
}

void WriteFile(const fs::path& path, const char* data, std::size_t size) {
  std::ofstream file(path, std::ios::binary);
  file.write(data, static_cast<std::streamsize>(size));
  if (!file.flush()) {
    std::cerr << "cannot write " << path << '\n';
    std::exit(1);
  }
}

void MakeFiles(const fs::path& root, std::size_t share) {
  const std::size_t textSize = (std::size_t{64} << 20) / share;
  const std::size_t logSize = 1340000 / share;
  const std::size_t smallFiles = 20000 / share;
  const std::string text = LogText(textSize);
  std::mt19937 random(11);
  fs::create_directories(root / "logs");
  for (int i = 0; i < 200; ++i) {
    WriteFile(root / "logs" / ("app." + std::to_string(1000 + i) + ".log"),
              text.data() + random() % (textSize - logSize), logSize);
  }
  for (std::size_t i = 0; i < smallFiles; ++i) {
    const fs::path folder = root / "small" / std::to_string(100 + i / 400);
    if (i % 400 == 0) {
      fs::create_directories(folder);
    }
    WriteFile(folder / ("part-" + std::to_string(100000 + i) + ".log"),
              text.data() + random() % (textSize - 8192), 200 + random() % 6000);
  }
  std::ofstream big(root / "big.log", std::ios::binary);
  for (int i = 0; i < 16; ++i) {
    big.write(text.data(), static_cast<std::streamsize>(text.size()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: LumBenchFiles DIRECTORY SHARE\n";
    return 2;
  }
  MakeFiles(argv[1], std::strtoull(argv[2], nullptr, 10));
  return 0;
}
