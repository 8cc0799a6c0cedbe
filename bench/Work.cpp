// One piece of the product's work in a process of its own, for whole-process figures.
//
//   LumBenchWork download URL FILE
//   LumBenchWork upload URL FILE
//   LumBenchWork pack-file PATH              packs PATH into PATH.tar.gz
//   LumBenchWork pack-directory PATH
//   LumBenchWork send-file URL PATH          compresses and uploads
//   LumBenchWork send-directory URL PATH
//   LumBenchWork idle                        prints the bytes that an idle object of each class
//   takes

#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <LumFileSys.h>
#include <LumLogger.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned int kTimeoutSeconds = 600;

// The object itself and what it holds on the heap.
template <typename Client>
void PrintIdleBytes(const char* name) {
  constexpr std::size_t kCount = 1000;
  std::vector<std::unique_ptr<Client>> objects;
  objects.reserve(kCount);
  const std::size_t before = mallinfo2().uordblks;
  for (std::size_t i = 0; i < kCount; ++i) {
    objects.emplace_back(new Client);
  }
  std::printf("%s %zu\n", name, (mallinfo2().uordblks - before) / kCount);
}

// Of this program alone: what getrusage says includes the process that it was forked from.
void PrintPeakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) {
      std::fprintf(stderr, "%ld\n", std::strtol(line.c_str() + 6, nullptr, 10));
    }
  }
}

bool Run(const std::string& what, const std::string& first, const std::string& second) {
  if (what == "download") {
    return LumCurlHttp().DownloadFile(first, second) == 0;
  }
  if (what == "upload") {
    return LumCurlOrvOps().UploadLog(first, second, kTimeoutSeconds) == 0;
  }
  if (what == "pack-file") {
    return LumCompressAndDeCompress::CompressFile(first.c_str()) == 0;
  }
  if (what == "pack-directory") {
    return LumCompressAndDeCompress::CompressFilePath(first.c_str()) == 0;
  }
  if (what == "send-file") {
    return LumCurlOrvOps().UploadLogFileForCompress(first, second) == 0;
  }
  if (what == "send-directory") {
    return LumCurlOrvOps().UploadLogDirPathForCompress(first, second) == 0;
  }
  if (what == "idle") {
    PrintIdleBytes<LumCurlHttp>("LumCurlHttp");
    PrintIdleBytes<LumCurlOrvOps>("LumCurlOrvOps");
    PrintIdleBytes<LumApollo>("LumApollo");
    return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  LumLogger::GetInstance().SetLevel(LumLogger::kError);
  const auto argument = [&](int i) { return i < argc ? argv[i] : ""; };
  LumCurlHttp::CurlGlobalInit();
  const bool done = Run(argument(1), argument(2), argument(3));
  PrintPeakMemory();
  return done ? 0 : 1;
}
