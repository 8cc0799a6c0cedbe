// One piece of the product's work in a process of its own, for whole-process figures.
//
//   LumBenchWork download URL FILE
//   LumBenchWork download-by-libcurl URL FILE
//   LumBenchWork upload URL FILE
//   LumBenchWork send-file URL PATH          compresses and uploads
//   LumBenchWork send-directory URL PATH
//   LumBenchWork idle                        prints the bytes that an idle object of each class
//   takes

#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <LumLogger.h>
#include <malloc.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Bare.h"

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
  std::printf("%s %zu\n", name, (mallinfo2().uordblks - before + kCount / 2) / kCount);
}

// DownloadFile over libcurl alone, with stdio's own buffer.
bool DownloadByLibcurl(const std::string& url, const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "wb");
  const bool done = file != nullptr && lumbench::BareDownload(url.c_str(), file);
  return file != nullptr && std::fclose(file) == 0 && done;
}

bool Run(const std::string& what, const std::string& first, const std::string& second) {
  if (what == "download") {
    return LumCurlHttp().DownloadFile(first, second) == 0;
  }
  if (what == "upload") {
    return LumCurlOrvOps().UploadLog(first, second, kTimeoutSeconds) == 0;
  }
  if (what == "download-by-libcurl") {
    return DownloadByLibcurl(first, second);
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
  return Run(argument(1), argument(2), argument(3)) ? 0 : 1;
}
