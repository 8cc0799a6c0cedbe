// What one request of the product costs beside the same request over libcurl alone: instructions,
// when valgrind's callgrind runs this program, and allocations.
//
//   LumRequestCost PORT [BLOCKS]
//
// sends each candidate's requests to a LumBenchServer at PORT, in blocks of a few, all candidates
// in turn. After each block a line on standard output says which operation and whose it was, how
// many requests the block holds, and how many allocations they made; callgrind writes a profile of
// the block alone, named by the same words.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <LumFileSys.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "Bare.h"
#include "Interposed.h"
#include "PeerRequests.h"

namespace {

constexpr int kRequests = 4;  // in a block
constexpr int kDefaultBlocks = 5;

struct Candidate {
  const char* operation;
  const char* whose;
  std::function<bool()> run;  // false: not the reply that was expected
  int repetitions = kRequests;
};

// What the server answers; the requests carry it as well.
std::string Document(const char* url) {
  return lumbench::BareGet(url).body;
}

// An array of as many of `element` as fill `size` bytes.
std::string ListOf(const std::string& element, std::size_t size) {
  std::string text = "[";
  while (text.size() < size) {
    text += element + ",";
  }
  return text + "null]";
}

// Objects of a hundred members, which are more than one finds without an index. No two names are
// the same: what the process's seed makes of one object would count once for each of them.
std::string WideObjects(std::size_t size) {
  std::string text = "[";
  for (int name = 0; text.size() < size;) {
    std::string object;
    for (int i = 0; i < 100; ++i, ++name) {
      object += (i == 0 ? "{\"channel." : ",\"channel.") + std::to_string(name) +
                "\":" + (i % 3 == 0 ? "\"idle\"" : std::to_string(i * 7919));
    }
    text += object + "},";
  }
  return text + "null]";
}

int Gzip(const std::string& text, std::vector<char>& out) {
  return LumCompressAndDeCompress::GzipCompress(text.data(), static_cast<int>(text.size()),
                                                out.data(), static_cast<int>(out.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: LumRequestCost PORT [BLOCKS]\n");
    return 2;
  }
  const int blocks = argc > 2 ? std::atoi(argv[2]) : kDefaultBlocks;
  const std::string authority = std::string("127.0.0.1:") + argv[1];
  const std::string url = "http://" + authority + "/api/v1/vehicles/17/state";
  const std::string token = "0123456789abcdef0123456789abcdef";
  LumCurlHttp::CurlGlobalInit();

  LumCurlHttp general;
  LumCurlOrvOps service;
  LumApollo apollo;
  LumApolloEnv env;
  env.configServer = authority;
  env.appId = "vehicles";
  env.cluster = "default";
  env.namespaceName = "application";
  const std::string fetchUrl = "https://" + authority + "/configs/vehicles/default/application";

  const std::string document = Document(url.c_str());
  const std::list<std::string> headers = {"Content-Type: application/json",
                                          "X-Auth-Token: " + token};
  const lumbench::Lines lines = {headers.front().c_str(), headers.back().c_str()};
  const lumbench::Lines gzipLines = {lines[0], lines[1], "X-ORV-ACCESS-ID: a-1",
                                     "Content-Encoding: gzip"};
  const std::list<std::string> jsonHeaders = {"Content-Type: application/json", "charsets: utf-8"};
  LumJson::Value request;
  if (!request.Parse(document)) {
    std::fprintf(stderr, "LumRequestCost: no document from %s\n", url.c_str());
    return 1;
  }
  const std::string styled = request.ToStyledString();
  const std::string large = ListOf(document, 1 << 16);
  LumJson::Value largeValue;
  largeValue.Parse(large);
  const std::string largeStyled = largeValue.ToStyledString();
  std::vector<char> compressed(2 * largeStyled.size());

  // A report from its text to the server's answer, and what libcurl sends in its place.
  const auto reportOf = [&](const std::string& text) {
    return [&, text] {
      LumJson::Value value;
      return value.Parse(text) && service.ReportData(url, value, token, "") == 0;
    };
  };
  const auto bareReportOf = [&](const std::string& text) {
    LumJson::Value value;
    value.Parse(text);
    return [&, body = value.ToStyledString()] {
      return lumbench::BareServicePost(url.c_str(), body.data(), body.size(), lines).status == 200;
    };
  };
  const std::string small = ListOf(document, 1 << 10);
  const std::string largest = ListOf(document, 1 << 20);
  const std::string wide = WideObjects(1 << 16);

  const std::string gzipped(compressed.data(), static_cast<std::size_t>(Gzip(styled, compressed)));

  int status = 0;
  const Candidate candidates[] = {
      {"Get", "libcurl", [&] { return lumbench::BareGet(url.c_str()).status == 200; }},
      {"Get", "library",
       [&] {
         general.Get(url, "", false, status);
         return status == 200;
       }},
      {"Get", "curlpp", [&] { return lumbench::CurlppGet(url, jsonHeaders).status == 200; }},
      {"Post", "libcurl", [&] { return lumbench::BarePost(url.c_str(), document).status == 200; }},
      {"Post", "library",
       [&] {
         general.Post(url, document, false, status);
         return status == 200;
       }},
      {"Post", "curlpp",
       [&] { return lumbench::CurlppPost(url, document, jsonHeaders).status == 200; }},
      {"service-Get", "libcurl",
       [&] { return lumbench::BareServiceGet(url.c_str(), lines).status == 200; }},
      {"service-Get", "library",
       [&] {
         service.Get(url, headers, status);
         return status == 200;
       }},
      {"service-Get", "curlpp", [&] { return lumbench::CurlppGet(url, headers).status == 200; }},
      {"service-Post", "libcurl",
       [&] {
         return lumbench::BareServicePost(url.c_str(), document.c_str(), document.size(), lines)
                    .status == 200;
       }},
      {"service-Post", "library",
       [&] {
         service.Post(url, document, headers, status);
         return status == 200;
       }},
      {"service-Post", "curlpp",
       [&] { return lumbench::CurlppPost(url, document, headers).status == 200; }},
      // A token is the object of the library's one PUT: it builds the header lines by itself, and
      // serialises the document that it is given a copy of.
      {"service-Put", "libcurl",
       [&] { return lumbench::BareServicePut(url.c_str(), styled, lines).status == 200; }},
      {"service-Put", "library",
       [&] {
         LumJson::Value answer = service.RefreshToken(url, request, token);
         return answer["state"].JsonValueToString() == "driving";
       }},
      {"service-Put", "curlpp",
       [&] { return lumbench::CurlppPut(url, styled, headers).status == 200; }},
      {"fetch", "libcurl", [&] { return lumbench::BareFetch(fetchUrl.c_str()).status == 200; }},
      {"fetch", "library", [&] { return apollo.GetPropertyString(env).code == 200; }},
      {"fetch", "curlpp", [&] { return lumbench::CurlppGet(fetchUrl, jsonHeaders).status == 200; }},
      {"report", "libcurl",
       [&] {
         return lumbench::BareServicePost(url.c_str(), styled.c_str(), styled.size(), lines)
                    .status == 200;
       }},
      {"report", "library", [&] { return service.ReportData(url, request, token, "") == 0; }},
      {"gzip-report", "libcurl",
       [&] {
         return lumbench::BareServicePost(url.c_str(), gzipped.data(), gzipped.size(), gzipLines)
                    .status == 200;
       }},
      {"gzip-report", "library",
       [&] { return service.ReportDataWithGzip(url, request, token, "a-1") == 0; }},
      {"report-1K", "libcurl", bareReportOf(small)},
      {"report-1K", "library", reportOf(small)},
      {"report-64K", "libcurl", bareReportOf(large), 1},
      {"report-64K", "library", reportOf(large), 1},
      {"report-1M", "libcurl", bareReportOf(largest), 1},
      {"report-1M", "library", reportOf(largest), 1},
      {"report-wide", "libcurl", bareReportOf(wide), 1},
      {"report-wide", "library", reportOf(wide), 1},
      // Documents: what a JSON request does besides.
      {"parse-300", "library",
       [&] {
         LumJson::Value value;
         return value.Parse(document);
       }},
      {"copy-300", "library",
       [&] {
         const LumJson::Value copy = request;
         return true;
       }},
      {"style-300", "library", [&] { return request.ToStyledString() == styled; }},
      {"gzip-300", "library", [&] { return Gzip(styled, compressed) > 0; }},
      {"parse-64K", "library",
       [&] {
         LumJson::Value value;
         return value.Parse(large);
       },
       1},
      {"style-64K", "library", [&] { return largeValue.ToStyledString().size() > 65536; }, 1},
      {"gzip-64K", "library", [&] { return Gzip(largeStyled, compressed) > 0; }, 1},
  };

  // The first block of each, unmeasured, fills caches that are filled once.
  for (int block = -1; block < blocks; ++block) {
    for (const Candidate& candidate : candidates) {
      const std::string name = std::string(candidate.operation) + " " + candidate.whose;
      bool good = true;
      CALLGRIND_ZERO_STATS;
      const std::size_t before = lumbench::Allocations();
      for (int i = 0; i < candidate.repetitions; ++i) {
        good = candidate.run() && good;
      }
      const std::size_t allocations = lumbench::Allocations() - before;
      if (block >= 0) {
        CALLGRIND_DUMP_STATS_AT(name.c_str());
      }
      if (!good) {
        std::fprintf(stderr, "LumRequestCost: %s failed\n", name.c_str());
        return 1;
      }
      if (block >= 0) {
        std::printf("%s %d %zu\n", name.c_str(), candidate.repetitions, allocations);
        std::fflush(stdout);
      }
    }
  }
  return 0;
}
