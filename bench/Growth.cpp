// The time of each kind of work from 1 KB to LARGEST bytes: it has to grow with the bytes and not
// faster.
//
//   LumBenchGrowth DIRECTORY FILES-PORT SINK-PORT LARGEST ROUNDS SLICE-SECONDS
//
// DIRECTORY holds the files "1024", "4096" and so on, each of that many bytes of log text, which
// the server at FILES-PORT of 127.0.0.1 offers by their names; the one at SINK-PORT discards
// uploads.

#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <LumFileSys.h>
#include <LumLogger.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Documents.h"
#include "Rounds.h"

namespace {

constexpr unsigned int kTimeoutSeconds = 60;

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) {
    std::fprintf(
        stderr,
        "usage: LumBenchGrowth DIRECTORY FILES-PORT SINK-PORT LARGEST ROUNDS SLICE-SECONDS\n");
    return 2;
  }
  const std::string directory = argv[1];
  const std::string files = std::string("http://127.0.0.1:") + argv[2] + "/";
  const std::string sink = std::string("http://127.0.0.1:") + argv[3] + "/upload";
  const std::size_t largest = std::strtoull(argv[4], nullptr, 10);
  const lumbench::Plan plan = {std::atoi(argv[5]), std::atof(argv[6]), 1};
  LumLogger::GetInstance().SetLevel(LumLogger::kError);
  LumCurlHttp general;
  LumCurlOrvOps service;
  service.CurlGlobalInit();

  // An upload's reply goes to standard output; the results go to where that led before.
  const int results = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  for (std::size_t size = 1024; size <= largest; size *= 4) {
    const std::string file = directory + "/" + std::to_string(size);
    const std::string archive = file + ".tar.gz";
    const std::string copy = directory + "/copy";
    const std::string text = lumbench::MakeDocument(lumbench::Shape::kRecords, size);
    LumJson::Value value;
    value.Parse(text);
    const auto measure = [&](const char* name, lumbench::Candidate candidate) {
      lumbench::Measure("growth", name, static_cast<double>(size), plan, {std::move(candidate)});
    };
    measure("DownloadFile", {"library", [&](int) {
                               return general.DownloadFile(files + std::to_string(size), copy) == 0;
                             }});
    measure("UploadLog", {"library", [&](int) {
                            std::fflush(stdout);
                            dup2(nowhere, STDOUT_FILENO);
                            const int result = service.UploadLog(sink, file, kTimeoutSeconds);
                            std::fflush(stdout);
                            dup2(results, STDOUT_FILENO);
                            return result == 0;
                          }});
    measure("CompressFile", {"library", [&](int) {
                               return LumCompressAndDeCompress::CompressFile(file.c_str()) == 0;
                             }});
    measure("LumJson parse", {"library", [&](int) {
                                LumJson::Value read;
                                return read.Parse(text);
                              }});
    measure("ToStyledString",
            {"library", [&](int) { return value.ToStyledString().size() > size / 2; }});
    std::remove(archive.c_str());
    std::remove(copy.c_str());
  }
  return 0;
}
