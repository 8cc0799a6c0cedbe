// The table of time limits in docs/operations.md is what the operations set.

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "HttpResult.h"
#include "LumApollo.h"
#include "LumCurlHttp.h"
#include "LumCurlOrvOps.h"
#include "recording/RecordingTest.h"
#include "support/Files.h"

namespace lumtest {
namespace {

constexpr unsigned int kCallersLimit = 77;
const char kUrl[] = "https://server.example/";

using Calls = std::vector<std::function<void()>>;

struct Row {
  std::string connect;
  std::string whole;
};

// The rows of the page's table by their first column. A limit that is no number is the caller's.
std::map<std::string, Row> RowsOfThePage() {
  std::istringstream page(ReadFile(LUM_SOURCE_DIR "/docs/operations.md"));
  std::map<std::string, Row> rows;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.compare(0, 3, "## ") == 0) {
      inside = line == "## Time limits";
    }
    if (inside && line.compare(0, 3, "| `") == 0) {
      std::vector<std::string> cells;
      std::istringstream columns(line.substr(2));
      for (std::string cell; std::getline(columns, cell, '|');) {
        cells.push_back(cell.substr(cell.find_first_not_of(' ')));
        cells.back().erase(cells.back().find_last_not_of(' ') + 1);
      }
      EXPECT_EQ(cells.size(), 3U) << line;
      cells.resize(3);
      EXPECT_TRUE(rows.emplace(cells[0], Row{cells[1], cells[2]}).second) << line;
    }
  }
  return rows;
}

long long Number(const std::string& limit) {
  return limit.front() == '`' ? kCallersLimit : std::stoll(limit);
}

class TimeLimitsTest : public RecordingTest {
 protected:
  LumCurlHttp general;
  LumCurlOrvOps service;
  LumApollo apollo;
  LumApolloEnv env{"server.example", "app", "", "space"};
  LumJson::Value document;
  TempDir directory;
  const std::string path = directory.Write("log", "content");
  const std::string archive = directory.Write("log.tar.gz", "packed");
  int status = 0;

  // Every form of every operation that sends a request.
  const std::map<std::string, Calls> operations{
      {"`LumCurlHttp::Get`, `Post`",
       {[this] { general.Get(kUrl, "", false, status); },
        [this] { general.Post(kUrl, "", false, status); }}},
      {"`LumCurlHttp::DownloadFile`",
       {[this] { general.DownloadFile(kUrl, directory.Path("download")); }}},
      {"`LumCurlOrvOps::Get`, `GetLogAddress`",
       {[this] { service.Get(kUrl, {}, status); },
        [this] { service.GetLogAddress(kUrl, "", "", ""); }}},
      {"`LumCurlOrvOps::Post`, `GetToken`",
       {[this] { service.Post(kUrl, "", {}, status); },
        [this] { service.GetToken(kUrl, document); }}},
      {"`LumCurlOrvOps::RefreshToken`", {[this] { service.RefreshToken(kUrl, document, ""); }}},
      {"`LumCurlOrvOps::ReportData`", {[this] { service.ReportData(kUrl, document, "", ""); }}},
      {"`LumCurlOrvOps::ReportData` with `timeout`",
       {[this] { service.ReportData(kUrl, document, "", kCallersLimit, ""); }}},
      {"`LumCurlOrvOps::ReportDataWithGzip`, every form",
       {[this] { service.ReportDataWithGzip(kUrl, document, ""); },
        [this] { service.ReportDataWithGzip(kUrl, document, "", kCallersLimit); },
        [this] { service.ReportDataWithGzip(kUrl, document, "", std::string("id")); },
        [this] { service.ReportDataWithGzip(kUrl, document, "", "id", "topic"); }}},
      {"`LumCurlOrvOps::UploadLog` and `UploadVideoFile` with `timeoutSeconds`",
       {[this] { service.UploadLog(kUrl, path, kCallersLimit, {}); },
        [this] { service.UploadLog(kUrl, path, kCallersLimit); },
        [this] { service.UploadVideoFile(kUrl, path, kCallersLimit); }}},
      {"`LumCurlOrvOps::UploadLog(url, filePath)`, and the upload of the three "
       "compress-and-upload operations",
       {[this] { service.UploadLog(kUrl, path); },
        [this] { service.UploadLogFileForCompress(kUrl, path); },
        [this] { service.UploadLogDirPathForCompress(kUrl, path); },
        [this] { service.UploadLogFileGorupForCompress(kUrl, "file", path); }}},
      {"`LumApollo::GetPropertyString`", {[this] { apollo.GetPropertyString(env); }}}};
};

TEST_F(TimeLimitsTest, ThoseOfTheOperationsPageAreSet) {
  document["sensor"] = "a document of some length";
  std::map<std::string, Row> rows = RowsOfThePage();
  for (const auto& [name, calls] : operations) {
    SCOPED_TRACE(name);
    const auto row = rows.find(name);
    ASSERT_NE(row, rows.end()) << "not on the page";
    for (const auto& call : calls) {
      recorder.Reset();
      call();
      const std::vector<Transfer> transfers = recorder.Transfers();
      ASSERT_EQ(transfers.size(), 1U);
      EXPECT_EQ(transfers[0].numbers.at(CURLOPT_CONNECTTIMEOUT), Number(row->second.connect));
      EXPECT_EQ(transfers[0].numbers.at(CURLOPT_TIMEOUT), Number(row->second.whole));
    }
    rows.erase(row);
  }
  EXPECT_THAT(rows, ::testing::IsEmpty()) << "rows that no operation stands for";
}

}  // namespace
}  // namespace lumtest
