// Measures this library's compression against what it is to beat: archives against `tar czf`, the
// one-shot form against zlib at level 6.
//
//   LumFileSysBench [DIRECTORY]
//   LumFileSysBench --make DIRECTORY [SHARE]    makes the files in DIRECTORY and does nothing else;
//                                               with SHARE, 1/SHARE of them, so much smaller
//
// The first form makes its files in a new directory below DIRECTORY (default: the working
// directory), about 1.4 GB, and removes them at the end. Each archive is made three times by either
// side, in turns and each in a process of its own; the table shows the medians. Both sides find the
// files in the page cache.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "LumFileSys.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 3;

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

struct Cost {
  double wall;  // seconds
  double cpu;   // seconds, user and system, children included
  long memory;  // KiB, peak resident
};

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Runs `work` in a child process.
Cost Measure(const std::function<int()>& work) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    _exit(work());
  }
  int status = -1;
  rusage usage = {};
  wait4(child, &status, 0, &usage);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  if (status != 0) {
    std::cerr << "failed\n";
    std::exit(1);
  }
  return {wall.count(), Seconds(usage.ru_utime) + Seconds(usage.ru_stime), usage.ru_maxrss};
}

Cost Median(std::vector<Cost> costs, double Cost::*by) {
  std::sort(costs.begin(), costs.end(),
            [by](const Cost& a, const Cost& b) { return a.*by < b.*by; });
  return costs[costs.size() / 2];
}

// `self` packs what it is given and ends; it starts small, so that its peak memory is the
// packing's.
void CompareArchives(const std::string& self, const char* title, const fs::path& path,
                     const char* kind) {
  const fs::path ours = path.string() + ".tar.gz";
  const fs::path theirs = path.parent_path() / "reference.tar.gz";
  std::vector<Cost> library;
  std::vector<Cost> tar;
  std::uintmax_t librarySize = 0;
  std::uintmax_t tarSize = 0;
  for (int round = 0; round < kRounds; ++round) {
    library.push_back(Measure(
        [&] { return execl(self.c_str(), self.c_str(), "--pack", kind, path.c_str(), nullptr); }));
    librarySize = fs::file_size(ours);
    fs::remove(ours);
    tar.push_back(Measure([&] {
      return execlp("tar", "tar", "czf", theirs.c_str(), "-C", path.parent_path().c_str(),
                    path.filename().c_str(), nullptr);
    }));
    tarSize = fs::file_size(theirs);
    fs::remove(theirs);
  }
  const double libraryWall = Median(library, &Cost::wall).wall;
  const double libraryCpu = Median(library, &Cost::cpu).cpu;
  const double tarWall = Median(tar, &Cost::wall).wall;
  const double tarCpu = Median(tar, &Cost::cpu).cpu;
  std::printf("%-28s %7.3f %7.3f %8.3f %8.3f %6.1fx %6.1fx %+7.1f%% %7.1f MiB\n", title,
              libraryWall, libraryCpu, tarWall, tarCpu, tarWall / libraryWall, tarCpu / libraryCpu,
              100.0 * static_cast<double>(librarySize) / static_cast<double>(tarSize) - 100.0,
              static_cast<double>(Median(library, &Cost::wall).memory) / 1024.0);
}

// Microseconds that one call of `work` takes: the best of several bursts.
double Microseconds(const std::function<void()>& work) {
  double best = 1e12;
  for (int burst = 0; burst < 7; ++burst) {
    const auto start = std::chrono::steady_clock::now();
    std::chrono::duration<double, std::micro> taken{};
    int calls = 0;
    do {
      work();
      ++calls;
      taken = std::chrono::steady_clock::now() - start;
    } while (taken.count() < 50000.0);
    best = std::min(best, taken.count() / calls);
  }
  return best;
}

std::size_t ZlibLevel6(const std::string& text, std::vector<char>& out) {
  z_stream stream = {};
  deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  deflateEnd(&stream);
  return stream.total_out;
}

void CompareOneShot(std::size_t size) {
  const std::string text = LogText(size);
  std::vector<char> out(2 * size);
  int length = 0;
  std::size_t reference = 0;
  const double ours = Microseconds([&] {
    length = LumCompressAndDeCompress::GzipCompress(text.data(), static_cast<int>(size), out.data(),
                                                    static_cast<int>(out.size()));
  });
  const double theirs = Microseconds([&] { reference = ZlibLevel6(text, out); });
  std::printf("GzipCompress %9zu bytes  %10.1f us  zlib 6 %11.1f us  %6.1fx  %+6.1f%%\n", size,
              ours, theirs, theirs / ours,
              100.0 * static_cast<double>(length) / static_cast<double>(reference) - 100.0);
}

// The files to pack, below `root`; a `share` of one is about 1.4 GB.
void MakeFiles(const fs::path& root, std::size_t share = 1) {
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

int Pack(const std::string& kind, const char* path) {
  return kind == "file" ? LumCompressAndDeCompress::CompressFile(path)
                        : LumCompressAndDeCompress::CompressFilePath(path);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && argv[1] == std::string("--make")) {
    MakeFiles(argv[2], argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1);
    return 0;
  }
  if (argc == 4 && argv[1] == std::string("--pack")) {
    return Pack(argv[2], argv[3]) == 0 ? 0 : 1;
  }
  for (const std::size_t size : {std::size_t{1000}, std::size_t{10000}, std::size_t{65536},
                                 std::size_t{1} << 20, std::size_t{16} << 20}) {
    CompareOneShot(size);
  }

  std::string directory = (fs::path(argc > 1 ? argv[1] : ".") / "lum-bench-XXXXXX").string();
  if (mkdtemp(&directory[0]) == nullptr) {
    std::perror(directory.c_str());
    return 1;
  }
  const fs::path root = fs::absolute(directory);
  MakeFiles(root);
  std::printf("\n%-28s %7s %7s %8s %8s %7s %7s %8s %11s\n", "archive", "wall s", "cpu s",
              "tar wall", "tar cpu", "wall", "cpu", "size", "peak");
  const std::string self = fs::read_symlink("/proc/self/exe");
  CompareArchives(self, "268 MB of logs, 200 files", root / "logs", "directory");
  CompareArchives(self, "20,000 small files", root / "small", "directory");
  CompareArchives(self, "one file of 1 GiB", root / "big.log", "file");
  fs::remove_all(root);
  return 0;
}
