// What one request of the product costs beside the same request over libcurl alone: instructions,
// when valgrind's callgrind runs this program, and allocations.
//
//   LumRequestCost PORT ROUNDS
//
// sends a request of each candidate in turn to a LumBenchServer at PORT. After each a line on
// standard output says which operation and whose it was, and how many allocations it made;
// callgrind writes a profile of the request alone, named by the same words.

#include <LumFileSys.h>
#include <malloc.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Interposed.h"
#include "Operations.h"

namespace {

using lumbench::Candidate;
using lumbench::Operation;

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

std::vector<char> Gzip(const std::string& text) {
  std::vector<char> out(2 * text.size());
  out.resize(static_cast<std::size_t>(LumCompressAndDeCompress::GzipCompress(
      text.data(), static_cast<int>(text.size()), out.data(), static_cast<int>(out.size()))));
  return out;
}

// The two reports of the answer's document.
std::vector<Operation> Reports(LumCurlOrvOps& service, const lumbench::Work& work,
                               const std::string& url) {
  const lumbench::Lines gzipLines = {work.lines[0], work.lines[1], "X-ORV-ACCESS-ID: a-1",
                                     "Content-Encoding: gzip"};
  return {{"report",
           {{"library",
             [&service, &work, url](int) {
               return service.ReportData(url, work.document, work.token, "") == 0;
             }},
            {"libcurl",
             [&work, url](int) {
               const LumJson::Value copy = work.document;
               const std::string text = copy.ToStyledString();
               return lumbench::BareServicePost(url.c_str(), text.data(), text.size(), work.lines)
                          .status == 200;
             }}}},
          {"gzip-report",
           {{"library",
             [&service, &work, url](int) {
               return service.ReportDataWithGzip(url, work.document, work.token, "a-1") == 0;
             }},
            {"libcurl", [&work, url, gzipLines](int) {
               const std::vector<char> body = Gzip(work.document.ToStyledString());
               return lumbench::BareServicePost(url.c_str(), body.data(), body.size(), gzipLines)
                          .status == 200;
             }}}}};
}

// A report from its text to the server's answer.
Operation ReportOf(const char* name, const std::string& text, LumCurlOrvOps& service,
                   const lumbench::Work& work, const std::string& url) {
  return {name, {{"library", [&service, &work, url, text](int) {
                    LumJson::Value read;
                    return read.Parse(text) && service.ReportData(url, read, work.token, "") == 0;
                  }}}};
}

// What is done with a document besides.
std::vector<Operation> Documents(const std::string& size, const std::string& text) {
  LumJson::Value value;
  value.Parse(text);
  const std::string styled = value.ToStyledString();
  return {{"parse-" + size,
           {{"library",
             [text](int) {
               LumJson::Value read;
               return read.Parse(text);
             }}}},
          {"copy-" + size,
           {{"library",
             [value](int) {
               const LumJson::Value copy = value;
               return true;
             }}}},
          {"style-" + size,
           {{"library", [value, styled](int) { return value.ToStyledString() == styled; }}}},
          {"gzip-" + size, {{"library", [styled](int) { return !Gzip(styled).empty(); }}}}};
}

// One request, or whatever it is, and what it takes, which is only told when it is `counted`.
bool Run(const std::string& operation, const Candidate& candidate, bool counted) {
  const std::string name = operation + " " + candidate.name;
  malloc_trim(0);  // or what an earlier one has freed is put together at this one's cost
  CALLGRIND_ZERO_STATS;
  const std::size_t before = lumbench::Allocations();
  const bool good = candidate.run(0);
  const std::size_t allocations = lumbench::Allocations() - before;
  if (!good) {
    std::fprintf(stderr, "LumRequestCost: %s failed\n", name.c_str());
  } else if (counted) {
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    std::printf("%s %zu\n", name.c_str(), allocations);
  }
  return good;
}

template <typename List>
void Append(std::vector<Operation>& all, const List& more) {
  all.insert(all.end(), more.begin(), more.end());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: LumRequestCost PORT ROUNDS\n");
    return 2;
  }
  const int rounds = std::atoi(argv[2]);
  const std::string authority = std::string("127.0.0.1:") + argv[1];
  const std::string url = "http://" + authority + "/api/v1/vehicles/17/state";
  LumCurlHttp::CurlGlobalInit();

  lumbench::ClientsOfThreads clients;
  LumCurlOrvOps& service = clients[0].service;
  const lumbench::Work work(url);
  const std::string large = ListOf(work.text, 1 << 16);
  const std::string largest = ListOf(work.text, 1 << 20);

  std::vector<Operation> operations = lumbench::Operations(clients, work, url);
  operations.push_back(lumbench::Fetch(clients, authority));
  Append(operations, Reports(service, work, url));
  operations.push_back(ReportOf("report-1K", ListOf(work.text, 1 << 10), service, work, url));
  operations.push_back(ReportOf("report-64K", large, service, work, url));
  operations.push_back(ReportOf("report-1M", largest, service, work, url));
  operations.push_back(ReportOf("report-wide", WideObjects(1 << 16), service, work, url));
  Append(operations, Documents("300", work.text));
  Append(operations, Documents("64K", large));

  // The first round, unmeasured, fills caches that are filled once.
  for (int round = -1; round < rounds; ++round) {
    for (const Operation& operation : operations) {
      for (const Candidate& candidate : operation.candidates) {
        if (!Run(operation.name, candidate, round >= 0)) {
          return 1;
        }
      }
    }
  }
  return 0;
}
