// Measures what the operations page states about memory: the peak of each operation above what the
// process held before, and what is kept for good.
//
//   LumBenchMemory URL ROOT
//
// URL is the address of a lumbackend that asks for no token and whose --root is ROOT.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

namespace {

constexpr std::size_t kDataSize = 64 * 1024 * 1024;
constexpr int kWarmUp = 100;
constexpr int kRounds = 10000;

// The results. Standard output takes the replies to uploads, standard error the log lines, and both
// lead nowhere.
FILE* results = nullptr;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(results, "%s failed\n", what.c_str());
  std::fflush(results);
  std::exit(1);
}

void SetOutputAside() {
  results = fdopen(dup(STDOUT_FILENO), "w");
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (results == nullptr || nowhere < 0) {
    std::exit(1);
  }
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
}

// A line of /proc/self/status, in KiB.
double StatusKibibytes(const std::string& name) {
  std::ifstream file("/proc/self/status");
  for (std::string word; file >> word;) {
    if (word == name) {
      double value = 0;
      file >> value;
      return value;
    }
  }
  Fail("reading " + name);
}

void PrintPeak(const char* name, const std::function<bool()>& operation) {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5" << std::flush;  // starts VmHWM anew
  const double before = StatusKibibytes("VmRSS:");
  if (!operation()) {
    Fail(name);
  }
  std::fprintf(results, "  %-42s %7.1f MiB\n", name, (StatusKibibytes("VmHWM:") - before) / 1024);
}

// Bytes of the heap in use per call, freed ones that malloc holds ready counted in.
void PrintKept(const char* name, const std::function<void()>& operation) {
  for (int i = 0; i < kWarmUp; ++i) {
    operation();
  }
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < kRounds; ++i) {
    operation();
  }
  const auto kept = static_cast<double>(mallinfo2().uordblks) - static_cast<double>(before);
  std::fprintf(results, "  %-42s %7.0f bytes\n", name, kept / kRounds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: LumBenchMemory URL ROOT\n");
    return 2;
  }
  const std::string url = argv[1];
  const std::string root = argv[2];
  SetOutputAside();
  std::signal(SIGPIPE, SIG_IGN);
  if (LumCurlHttp::CurlGlobalInit() != 0) {
    Fail("CurlGlobalInit");
  }

  const std::string directory = root + "/files";
  const std::string file = directory + "/large.json";
  std::ofstream(file) << '"' << std::string(kDataSize, 'x') << "\"\n" << std::flush;
  LumJson::Value document;
  document["text"] = std::string(kDataSize, 'x');
  LumCurlHttp http;
  LumCurlOrvOps service;
  int status = 0;

  std::fprintf(results, "Peak of one call above the start, 64 MiB of data\n");
  PrintPeak("LumCurlHttp::Get, the reply",
            [&] { return http.Get(url + "/files/large.json", "", false, status).IsString(); });
  PrintPeak("DownloadFile",
            [&] { return http.DownloadFile(url + "/files/large.json", root + "/copy") == 0; });
  PrintPeak("UploadLog", [&] { return service.UploadLog(url + "/objects/a", file, 60) == 0; });
  PrintPeak("UploadLogDirPathForCompress", [&] {
    return service.UploadLogDirPathForCompress(url + "/objects/b", directory) == 0;
  });
  PrintPeak("ReportData, the document",
            [&] { return service.ReportData(url + "/report", document, "token", 60, "") == 0; });
  PrintPeak("ReportDataWithGzip, the document", [&] {
    return service.ReportDataWithGzip(url + "/report", document, "token", "id") == 0;
  });

  std::fprintf(results, "Kept for good by one call\n");
  PrintKept("DownloadFile, path refused", [&] { http.DownloadFile(url, directory); });
  service.SetDomainIp("127.0.0.1");
  PrintKept("UploadLog, address pinned",
            [&] { service.UploadLog("http://storage.example:1/objects/logs", file, 60); });
  PrintKept("GetPropertyString", [&] {
    LumApolloEnv query{"127.0.0.1:1", "sample", "default", "application"};
    LumApollo().GetPropertyString(query);
  });
  PrintKept("GetPropertyString, URL too long", [&] {
    LumApolloEnv query{"127.0.0.1:1", "sample", "default", std::string(4096, 'n')};
    LumApollo().GetPropertyString(query);
  });
  PrintKept("LumCurlHttp::Get, for comparison",
            [&] { http.Get("http://127.0.0.1:1/", "", false, status); });
  std::fclose(results);
  return 0;
}
