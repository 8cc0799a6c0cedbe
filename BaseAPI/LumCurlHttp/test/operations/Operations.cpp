// The operations that send a request.

#include "Operations.h"

#include <HttpResult.h>

#include <algorithm>
#include <stdexcept>

namespace lumtest {

namespace {

using Text = const std::string&;

std::string WithCode(const LumJson::Value& value, int code) {
  return TextOf(value) + ", code " + std::to_string(code);
}

// A report's result with the last error that it left, in an object that had none.
template <typename Call>
std::string Report(Caller& c, Call call) {
  const int result = c.Try(call);
  if (c.shared) {
    return std::to_string(result);
  }
  const std::string lastError = c.service.GetLastErrorBody();
  c.service.UpdateLastError("");
  return std::to_string(result) + ", last error \"" + lastError + "\"";
}

template <typename Call>
std::string Number(Caller& c, Call call) {
  return std::to_string(c.Try(call));
}

// No status that a server sends.
constexpr int kNoCode = -7;

std::vector<Operation> MakeOperations() {
  return {
      {"General_Get", "LumCurlHttp::Get(string const&, string const&, bool, int&)", Kind::kJson, 5,
       5,
       [](Caller& c, Text url, Text) {
         int code = kNoCode;
         const auto value = c.Try([&] { return c.general.Get(url, "", c.useSsl, code); });
         return WithCode(value, code);
       }},
      {"General_Post", "LumCurlHttp::Post(string const&, string const&, bool, int&)", Kind::kJson,
       5, 5,
       [](Caller& c, Text url, Text) {
         int code = kNoCode;
         const auto value = c.Try([&] { return c.general.Post(url, c.body, c.useSsl, code); });
         return WithCode(value, code);
       }},
      {"DownloadFile", "LumCurlHttp::DownloadFile(string, string)", Kind::kDownload, 60, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string path = DownloadPath(directory);
         return Number(c, [&] { return c.general.DownloadFile(url, path); });
       }},
      {"GetToken", "LumCurlOrvOps::GetToken(string, LumJson::Value)", Kind::kDocument, 4, 5,
       [](Caller& c, Text url, Text) {
         return TextOf(c.Try([&] { return c.service.GetToken(url, c.document); }));
       }},
      {"RefreshToken", "LumCurlOrvOps::RefreshToken(string, LumJson::Value, string)",
       Kind::kDocument, 4, 4,
       [](Caller& c, Text url, Text) {
         return TextOf(c.Try([&] { return c.service.RefreshToken(url, c.document, c.token); }));
       }},
      {"ReportData", "LumCurlOrvOps::ReportData(string, LumJson::Value, string, string)",
       Kind::kReport, 4, 5,
       [](Caller& c, Text url, Text) {
         return Report(c, [&] { return c.service.ReportData(url, c.document, c.token, c.topic); });
       }},
      {"ReportData_Limit",
       "LumCurlOrvOps::ReportData(string, LumJson::Value, string, unsigned int, string)",
       Kind::kReport, 4, kGivenLimit,
       [](Caller& c, Text url, Text) {
         return Report(c, [&] {
           return c.service.ReportData(url, c.document, c.token, kGivenLimit, c.topic);
         });
       }},
      {"ReportDataWithGzip",
       "LumCurlOrvOps::ReportDataWithGzip(string const&, LumJson::Value, string const&)",
       Kind::kReport, 4, 4,
       [](Caller& c, Text url, Text) {
         return Report(c, [&] { return c.service.ReportDataWithGzip(url, c.document, c.token); });
       }},
      {"ReportDataWithGzip_Identifier",
       "LumCurlOrvOps::ReportDataWithGzip(string const&, LumJson::Value const&, string const&, "
       "string const&)",
       Kind::kReport, 4, 4,
       [](Caller& c, Text url, Text) {
         return Report(c, [&] {
           return c.service.ReportDataWithGzip(url, c.document, c.token, c.identifier);
         });
       }},
      {"ReportDataWithGzip_Number",
       "LumCurlOrvOps::ReportDataWithGzip(string, LumJson::Value, string, unsigned int)",
       Kind::kReport, 4, 4,
       [](Caller& c, Text url, Text) {
         return Report(c,
                       [&] { return c.service.ReportDataWithGzip(url, c.document, c.token, 1U); });
       }},
      {"ReportDataWithGzip_Topic",
       "LumCurlOrvOps::ReportDataWithGzip(string const&, LumJson::Value, string const&, "
       "string const&, string)",
       Kind::kReport, 4, 4,
       [](Caller& c, Text url, Text) {
         return Report(c, [&] {
           return c.service.ReportDataWithGzip(url, c.document, c.token, c.identifier, c.topic);
         });
       }},
      {"GetLogAddress", "LumCurlOrvOps::GetLogAddress(string, string, string, string)",
       Kind::kDocument, 4, 4,
       [](Caller& c, Text url, Text) {
         return TextOf(c.Try(
             [&] { return c.service.GetLogAddress(url, c.identifier, c.token, c.fileName); }));
       }},
      {"Service_Get", "LumCurlOrvOps::Get(string const&, list<string> const&, int&)",
       Kind::kDocument, 4, 4,
       [](Caller& c, Text url, Text) {
         int code = kNoCode;
         const auto value = c.Try([&] { return c.service.Get(url, c.lines, code); });
         return WithCode(value, code);
       }},
      {"Service_Post",
       "LumCurlOrvOps::Post(string const&, string const&, list<string> const&, int&)",
       Kind::kDocument, 4, 5,
       [](Caller& c, Text url, Text) {
         int code = kNoCode;
         const auto value = c.Try([&] { return c.service.Post(url, c.body, c.lines, code); });
         return WithCode(value, code);
       }},
      {"UploadLog_Lines",
       "LumCurlOrvOps::UploadLog(string, string, unsigned int, list<string> const&)", Kind::kUpload,
       10, kGivenLimit,
       [](Caller& c, Text url, Text directory) {
         const std::string path = UploadPath(directory);
         return Number(c, [&] { return c.service.UploadLog(url, path, kGivenLimit, c.lines); });
       }},
      {"UploadLog_Limit", "LumCurlOrvOps::UploadLog(string, string, unsigned int)", Kind::kUpload,
       10, kGivenLimit,
       [](Caller& c, Text url, Text directory) {
         const std::string path = UploadPath(directory);
         return Number(c, [&] { return c.service.UploadLog(url, path, kGivenLimit); });
       }},
      {"UploadVideoFile", "LumCurlOrvOps::UploadVideoFile(string, string, unsigned int)",
       Kind::kUpload, 10, kGivenLimit,
       [](Caller& c, Text url, Text directory) {
         const std::string path = UploadPath(directory);
         return Number(c, [&] { return c.service.UploadVideoFile(url, path, kGivenLimit); });
       }},
      {"UploadLog_Unsigned", "LumCurlOrvOps::UploadLog(string, string)", Kind::kUpload, 10, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string path = UploadPath(directory);
         return Number(c, [&] { return c.service.UploadLog(url, path); });
       }},
      {"UploadLog_Signed", "LumCurlOrvOps::UploadLog(string, string)", Kind::kUpload, 10, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string path = UploadPath(directory);
         return Number(c, [&] { return c.signedService.UploadLog(url, path); });
       }},
      {"UploadLogFileGorupForCompress",
       "LumCurlOrvOps::UploadLogFileGorupForCompress(string, string, string)", Kind::kArchive, 10,
       60,
       [](Caller& c, Text url, Text directory) {
         const std::string group = UploadPath(directory) + "\n" + directory + "/b.log\n";
         const std::string base = directory + "/group";
         return Number(c,
                       [&] { return c.service.UploadLogFileGorupForCompress(url, group, base); });
       }},
      {"UploadLogDirPathForCompress", "LumCurlOrvOps::UploadLogDirPathForCompress(string, string)",
       Kind::kArchive, 10, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string logs = directory + "/logs";
         return Number(c, [&] { return c.service.UploadLogDirPathForCompress(url, logs); });
       }},
      {"UploadLogFileForCompress", "LumCurlOrvOps::UploadLogFileForCompress(string, string)",
       Kind::kArchive, 10, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string path = UploadPath(directory);
         return Number(c, [&] { return c.service.UploadLogFileForCompress(url, path); });
       }},
      {"GetPropertyString", "LumApollo::GetPropertyString(LumApolloEnv&)", Kind::kApollo, 5, 5,
       [](Caller& c, Text url, Text) {
         LumApolloEnv env{HostOf(url), "app", "", "space"};
         const HttpResult result = c.Try([&] { return c.apollo.GetPropertyString(env); });
         return result.body + ", code " + std::to_string(result.code) + ", cluster \"" +
                env.cluster + "\"";
       }},
  };
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = MakeOperations();
  return operations;
}

const Operation& OperationNamed(const std::string& name) {
  for (const Operation& operation : Operations()) {
    if (operation.name == name) {
      return operation;
    }
  }
  throw std::runtime_error("no operation " + name);
}

std::vector<Operation> OperationsWhere(const std::function<bool(const Operation&)>& wanted) {
  std::vector<Operation> selected;
  std::copy_if(Operations().begin(), Operations().end(), std::back_inserter(selected), wanted);
  return selected;
}

std::string UploadPath(const std::string& directory) {
  return directory + "/a.log";
}

std::string DownloadPath(const std::string& directory) {
  return directory + "/download";
}

std::string TextOf(const LumJson::Value& value) {
  const std::string text = value.IsNull() ? "null" : value.JsonValueToString();
  return text.empty() ? "an empty text" : text;
}

std::string HostOf(const std::string& url) {
  const std::size_t begin = url.find("://") + 3;
  return url.substr(begin, url.find('/', begin) - begin);
}

}  // namespace lumtest
