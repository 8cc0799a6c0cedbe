// The table of time limits in docs/operations.md is what the operations set.

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "../operations/Operations.h"
#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

// The page's rows by their first column, each with the catalogue's names of its operations.
const std::map<std::string, std::vector<std::string>> kRows = {
    {"`LumCurlHttp::Get`, `Post`", {"General_Get", "General_Post"}},
    {"`LumCurlHttp::DownloadFile`", {"DownloadFile"}},
    {"`LumCurlOrvOps::Get`, `GetLogAddress`", {"Service_Get", "GetLogAddress"}},
    {"`LumCurlOrvOps::Post`, `GetToken`", {"Service_Post", "GetToken"}},
    {"`LumCurlOrvOps::RefreshToken`", {"RefreshToken"}},
    {"`LumCurlOrvOps::ReportData`", {"ReportData"}},
    {"`LumCurlOrvOps::ReportData` with `timeout`", {"ReportData_Limit"}},
    {"`LumCurlOrvOps::ReportDataWithGzip`, every form",
     {"ReportDataWithGzip", "ReportDataWithGzip_Identifier", "ReportDataWithGzip_Number",
      "ReportDataWithGzip_Topic"}},
    {"`LumCurlOrvOps::UploadLog` and `UploadVideoFile` with `timeoutSeconds`",
     {"UploadLog_Lines", "UploadLog_Limit", "UploadVideoFile"}},
    {"`LumCurlOrvOps::UploadLog(url, filePath)`, and the upload of the three compress-and-upload "
     "operations",
     {"UploadLog_Unsigned", "UploadLog_Signed", "UploadLogFileGorupForCompress",
      "UploadLogDirPathForCompress", "UploadLogFileForCompress"}},
    {"`LumApollo::GetPropertyString`", {"GetPropertyString"}},
};

struct Limits {
  double connect;
  double whole;
};

// Seconds; a limit that is no number is the caller's.
double Seconds(const std::string& limit) {
  return limit.front() == '`' ? kGivenLimit : std::stod(limit);
}

// The rows of the page's table by their first column.
std::map<std::string, Limits> RowsOfThePage() {
  std::istringstream page(ReadFile(LUM_SOURCE_DIR "/docs/operations.md"));
  std::map<std::string, Limits> rows;
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
      cells.resize(3, "0");
      EXPECT_TRUE(rows.insert({cells[0], {Seconds(cells[1]), Seconds(cells[2])}}).second) << line;
    }
  }
  return rows;
}

using TimeLimitsTest = RecordingTest;

// So they stand in the catalogue, too, by which the suites of faults wait.
TEST_F(TimeLimitsTest, ThoseOfTheOperationsPageAreSet) {
  std::map<std::string, Limits> rows = RowsOfThePage();
  std::set<std::string> tried;
  Caller caller;
  for (const auto& [name, operations] : kRows) {
    SCOPED_TRACE(name);
    const auto row = rows.find(name);
    ASSERT_NE(row, rows.end()) << "not on the page";
    const Limits limits = row->second;
    for (const std::string& each : operations) {
      SCOPED_TRACE(each);
      const Operation& operation = OperationNamed(each);
      EXPECT_TRUE(tried.insert(each).second);
      Forget();
      operation.run(caller, "https://server.example/", caller.MakeFiles("files"));
      const Transfer transfer = TheTransfer();
      EXPECT_EQ(static_cast<double>(transfer.numbers.at(CURLOPT_CONNECTTIMEOUT)), limits.connect);
      EXPECT_EQ(static_cast<double>(transfer.numbers.at(CURLOPT_TIMEOUT)), limits.whole);
      EXPECT_EQ(operation.connectLimit, limits.connect);
      EXPECT_EQ(operation.limit, limits.whole);
    }
    rows.erase(row);
  }
  EXPECT_THAT(rows, ::testing::IsEmpty()) << "rows that no operation stands for";
  EXPECT_EQ(tried.size(), Operations().size()) << "operations that no row stands for";
  Forget();
}

}  // namespace
}  // namespace lumtest
