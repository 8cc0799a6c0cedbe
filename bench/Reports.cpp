// Reports of the product beside what a user would write: nlohmann/json, zlib, libcurl.
//
//   LumBenchReports PORT LARGEST ROUNDS SLICE-SECONDS
//
// The server at PORT of 127.0.0.1 discards what it is sent and answers 200. The sizes, 1 KB to
// LARGEST bytes, are those of the indented text, which is what the product sends; nlohmann/json
// writes the same layout, and once the compact one for comparison.

#include <LumCurlOrvOps.h>
#include <LumFileSys.h>
#include <LumLogger.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Bare.h"
#include "Documents.h"
#include "Rounds.h"

namespace {

constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

std::vector<char> Gzip(const std::string& text, int level) {
  z_stream stream = {};
  deflateInit2(&stream, level, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  std::vector<char> out(deflateBound(&stream, text.size()));
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

void PrintSize(const char* what, std::size_t of, std::size_t bytes) {
  std::printf("{\"section\": \"sizes\", \"case\": \"%s\", \"bytes\": %zu, \"size\": %zu}\n", what,
              of, bytes);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: LumBenchReports PORT LARGEST ROUNDS SLICE-SECONDS\n");
    return 2;
  }
  const std::string url = std::string("http://127.0.0.1:") + argv[1] + "/report";
  const std::size_t largest = std::strtoull(argv[2], nullptr, 10);
  const lumbench::Plan plan = {std::atoi(argv[3]), std::atof(argv[4]), 1};
  LumLogger::GetInstance().SetLevel(LumLogger::kError);
  LumCurlOrvOps service;
  service.CurlGlobalInit();

  const std::string tokenLine = std::string("X-Auth-Token: ") + kToken;
  const lumbench::Lines plainLines = {"Content-Type: application/json", tokenLine.c_str()};
  const lumbench::Lines gzipLines = {"Content-Type: application/json", tokenLine.c_str(),
                                     "X-ORV-ACCESS-ID: a-1", "Content-Encoding: gzip"};
  for (std::size_t size = 1024; size <= largest; size *= 4) {
    const std::string compact = lumbench::MakeDocumentToWrite(lumbench::Shape::kRecords, size);
    LumJson::Value ours;
    ours.Parse(compact);
    const nlohmann::json theirs = nlohmann::json::parse(compact);
    const auto peer = [&](int indent, int level) {
      return [&theirs, &url, &gzipLines, indent, level](int) {
        const std::vector<char> body = Gzip(theirs.dump(indent), level);
        return lumbench::BareServicePost(url.c_str(), body.data(), body.size(), gzipLines).status ==
               200;
      };
    };
    lumbench::Measure(
        "reports", "report", static_cast<double>(size), plan,
        {{"library",
          [&](int) { return service.ReportDataWithGzip(url, ours, kToken, "a-1") == 0; }},
         {"library, plain", [&](int) { return service.ReportData(url, ours, kToken, "") == 0; }},
         {"nlohmann, zlib 6, libcurl", peer(4, 6)},
         {"nlohmann, zlib 1, libcurl", peer(4, 1)},
         {"nlohmann compact, zlib 6, libcurl", peer(-1, 6)}});

    const std::string styled = ours.ToStyledString();
    std::vector<char> out(2 * styled.size());
    const int gzipped = LumCompressAndDeCompress::GzipCompress(
        styled.data(), static_cast<int>(styled.size()), out.data(), static_cast<int>(out.size()));
    PrintSize("styled", size, styled.size());
    PrintSize("gzip", size, static_cast<std::size_t>(gzipped));
    PrintSize("zlib 6", size, Gzip(styled, 6).size());
    lumbench::Measure("gzip", "one-shot", static_cast<double>(size), plan,
                      {{"library",
                        [&](int) {
                          return LumCompressAndDeCompress::GzipCompress(
                                     styled.data(), static_cast<int>(styled.size()), out.data(),
                                     static_cast<int>(out.size())) > 0;
                        }},
                       {"zlib 6", [&](int) { return !Gzip(styled, 6).empty(); }},
                       {"zlib 1", [&](int) { return !Gzip(styled, 1).empty(); }}});
  }
  return 0;
}
