// The table of operations and what each makes of an ending.

#include "Operations.h"

#include <HttpResult.h>
#include <LumLogger.h>
#include <curl/curl.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace lumtest {

namespace {

const char kGeneralFile[] = "LumCurlHttp";
const char kGeneralEngine[] = "LumCurlHttpPrivate";
const char kServiceFile[] = "LumCurlOrvOps";
const char kServiceEngine[] = "LumCurlOrvOpsPrivate";
const char kApolloEngine[] = "LumApolloPrivate";

const char kDocument[] = R"({"accessId": "an identifier", "text": "a text that compresses"})";

// The compressor does not promise the same length twice: a star stands for it.
const char kGzipLength[] = ", gzip length=";

const char kLastError[] = ", last error ";

thread_local std::vector<std::string>* t_lines = nullptr;

LumJson::Value Document() {
  LumJson::Value value;
  value.Parse(kDocument);
  return value;
}

std::string Styled() {
  return Document().ToStyledString();
}

std::string Line(const std::string& file, const std::string& function, int level,
                 const std::string& message) {
  return file + " " + function + " " + std::to_string(level) + " " + message;
}

std::string WithCode(const LumJson::Value& value, int code) {
  return value.JsonValueToString() + ", code " + std::to_string(code);
}

std::string DownloadPath(const std::string& directory) {
  return directory + "/download";
}

// --- What each layer above the engines makes of a status and a body ---

std::string Answer(const char* function, const std::string& body, std::vector<std::string>& lines) {
  LumJson::Value value;
  if (!value.Parse(body)) {
    lines.push_back(Line(kServiceFile, function, 1, "parse json body failed, json body: " + body));
  }
  return value.JsonValueToString();
}

std::string FinishToken(const Operation&, const std::string& url, int status,
                        const std::string& body, std::vector<std::string>& lines) {
  if (status == 200) {
    return Answer("GetToken", body, lines);
  }
  lines.push_back(Line(kServiceFile, "GetToken", 1,
                       "Post failed, url=" + url + ", request=" + Styled() +
                           ", result=" + std::to_string(status) + ", " + body));
  return "";
}

std::string FinishRefresh(const Operation&, const std::string&, int status, const std::string& body,
                          std::vector<std::string>& lines) {
  if (status == 200) {
    return Answer("RefreshToken", body, lines);
  }
  lines.push_back(Line(kServiceFile, "RefreshToken", 1,
                       "Put failed error:" + std::to_string(status) + ", " + body));
  return "";
}

std::string FinishAddress(const Operation&, const std::string& url, int status,
                          const std::string& body, std::vector<std::string>& lines) {
  if (status == 200) {
    return Answer("GetLogAddress", body, lines);
  }
  lines.push_back(
      Line(kServiceFile, "GetLogAddress", 1, "Get from " + url + " failed, json body: " + body));
  return "";
}

// "Get" and "Post" of the service client.
std::string FinishJson(const Operation& operation, const std::string& url, int status,
                       const std::string& body, std::vector<std::string>& lines) {
  const std::string code = ", code " + std::to_string(status);
  if (status == 200) {
    return Answer(operation.function, body, lines) + code;
  }
  lines.push_back(Line(kServiceFile, operation.function, 1,
                       operation.function + (" failed, url=" + url) +
                           ", result=" + std::to_string(status) + ", " + body));
  return code;
}

// A report's result with the last error that it left, in an object that had none.
std::string ReportText(int result, Caller& caller) {
  if (caller.shared) {
    return std::to_string(result);
  }
  const std::string lastError = caller.service.GetLastErrorBody();
  caller.service.UpdateLastError("");
  return std::to_string(result) + kLastError + lastError;
}

std::string FinishReport(const Operation&, const std::string& url, int status,
                         const std::string& body, std::vector<std::string>& lines) {
  if (status == 200 || status == 204) {
    return std::string("0") + kLastError;
  }
  lines.push_back(
      Line(kServiceFile, "ReportData", 1,
           "Post failed url=" + url + ", result=" + std::to_string(status) + ":" + body));
  return std::string("-10000") + kLastError + body;
}

std::string FinishGzip(const Operation&, const std::string& url, int status,
                       const std::string& body, std::vector<std::string>& lines) {
  const std::string lengths = "src Length=" + std::to_string(Styled().size()) + kGzipLength + "*";
  if (status == 200 || status == 204) {
    lines.push_back(
        Line(kServiceFile, "ReportDataWithGzip", 3, "Post to url=" + url + " success, " + lengths));
    return std::string("0") + kLastError;
  }
  lines.push_back(Line(kServiceFile, "ReportDataWithGzip", 1,
                       "Post failed url=" + url + ", result=" + std::to_string(status) + ":" +
                           body + " " + lengths));
  return std::string("-10000") + kLastError + body;
}

// Uploads with a limit of the caller's; a video's function is its own.
std::string FinishUpload(const Operation& operation, const std::string&, int status,
                         const std::string&, std::vector<std::string>& lines) {
  if (status == 200) {
    return "0";
  }
  const bool video = std::string(operation.name) == "UploadVideoFile";
  lines.push_back(
      Line(kServiceFile, video ? "UploadVideoFile" : "UploadLog", 1, "UploadLog failed"));
  return "-10000";
}

std::string FinishTwoArguments(const Operation&, const std::string&, int status,
                               const std::string& body, std::vector<std::string>& lines) {
  if (status == 200) {
    return "0";
  }
  lines.push_back(Line(kServiceFile, "UploadLog", 1,
                       "UploadLog failed, code=" + std::to_string(status) + ", body=" + body));
  return "-10000";
}

// A directory keeps the archive of a failed upload and tells, the others do neither.
std::string FinishCompress(const Operation& operation, const std::string& url, int status,
                           const std::string& body, std::vector<std::string>& lines) {
  if (FinishTwoArguments(operation, url, status, body, lines) == "0") {
    return "0, no archive";
  }
  lines.push_back(Line(kServiceFile, operation.name, 1, "upload file failed"));
  return std::string(operation.name) == "UploadLogDirPathForCompress" ? "-10000, archive"
                                                                      : "0, no archive";
}

std::string ArchiveText(int result, const std::string& archive) {
  const bool left = Exists(archive);
  if (left) {
    std::remove(archive.c_str());
  }
  return std::to_string(result) + (left ? ", archive" : ", no archive");
}

// --- The table ---

std::string UploadPath(const std::string& directory) {
  return directory + "/a.log";
}

std::vector<Operation> MakeOperations() {
  using Text = const std::string&;
  return {
      {"General_Get", Kind::kGeneral, "GET", "Get", 5, 5,
       [](Caller& c, Text url, Text) {
         int code = 7;
         const LumJson::Value value = c.general.Get(url, "", false, code);
         return WithCode(value, code);
       },
       nullptr},
      {"General_Post", Kind::kGeneral, "POST", "Post", 5, 5,
       [](Caller& c, Text url, Text) {
         int code = 7;
         const LumJson::Value value = c.general.Post(url, kDocument, false, code);
         return WithCode(value, code);
       },
       nullptr},
      {"DownloadFile", Kind::kDownload, "", "DownloadFile", 60, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string path = DownloadPath(directory);
         const int result = c.general.DownloadFile(url, path);
         return std::to_string(result) + ", file " + ReadFile(path);
       },
       nullptr},
      {"GetToken", Kind::kService, "POST", "Post", 4, 5,
       [](Caller& c, Text url, Text) {
         return c.service.GetToken(url, Document()).JsonValueToString();
       },
       FinishToken},
      {"RefreshToken", Kind::kService, "PUT", "Put", 4, 4,
       [](Caller& c, Text url, Text) {
         return c.service.RefreshToken(url, Document(), "token").JsonValueToString();
       },
       FinishRefresh},
      {"ReportData", Kind::kService, "POST", "Post", 4, 5,
       [](Caller& c, Text url, Text) {
         return ReportText(c.service.ReportData(url, Document(), "token", ""), c);
       },
       FinishReport},
      {"ReportData_Limit", Kind::kService, "POST", "Post", 4, kUploadLimit,
       [](Caller& c, Text url, Text) {
         return ReportText(c.service.ReportData(url, Document(), "token", kUploadLimit, ""), c);
       },
       FinishReport},
      {"ReportDataWithGzip", Kind::kService, "POST", "Post", 4, 4,
       [](Caller& c, Text url, Text) {
         return ReportText(c.service.ReportDataWithGzip(url, Document(), "token"), c);
       },
       FinishGzip},
      {"GetLogAddress", Kind::kService, "GET", "Get", 4, 4,
       [](Caller& c, Text url, Text) {
         return c.service.GetLogAddress(url, "id", "token", "a.log").JsonValueToString();
       },
       FinishAddress},
      {"Service_Get", Kind::kService, "GET", "Get", 4, 4,
       [](Caller& c, Text url, Text) {
         int code = -7;
         const LumJson::Value value = c.service.Get(url, {"X-A: 1"}, code);
         return WithCode(value, code);
       },
       FinishJson},
      {"Service_Post", Kind::kService, "POST", "Post", 4, 5,
       [](Caller& c, Text url, Text) {
         int code = -7;
         const LumJson::Value value = c.service.Post(url, kDocument, {"X-A: 1"}, code);
         return WithCode(value, code);
       },
       FinishJson},
      {"UploadLog_Lines", Kind::kUpload, "PUT", "Upload", 10, kUploadLimit,
       [](Caller& c, Text url, Text directory) {
         return std::to_string(
             c.service.UploadLog(url, UploadPath(directory), kUploadLimit, {"X-A: 1"}));
       },
       FinishUpload},
      {"UploadLog_Limit", Kind::kUpload, "PUT", "Upload", 10, kUploadLimit,
       [](Caller& c, Text url, Text directory) {
         return std::to_string(c.service.UploadLog(url, UploadPath(directory), kUploadLimit));
       },
       FinishUpload},
      {"UploadVideoFile", Kind::kUpload, "PUT", "Upload", 10, kUploadLimit,
       [](Caller& c, Text url, Text directory) {
         return std::to_string(c.service.UploadVideoFile(url, UploadPath(directory), kUploadLimit));
       },
       FinishUpload},
      {"UploadLog_Unsigned", Kind::kUpload, "PUT", "Upload", 10, 60,
       [](Caller& c, Text url, Text directory) {
         return std::to_string(c.service.UploadLog(url, UploadPath(directory)));
       },
       FinishTwoArguments},
      {"UploadLog_Signed", Kind::kUpload, "PUT", "Upload", 10, 60,
       [](Caller& c, Text url, Text directory) {
         return std::to_string(c.signedService.UploadLog(url, UploadPath(directory)));
       },
       FinishTwoArguments},
      {"UploadLogFileGorupForCompress", Kind::kUpload, "PUT", "Upload", 10, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string base = directory + "/group";
         return ArchiveText(
             c.service.UploadLogFileGorupForCompress(url, UploadPath(directory) + "\n", base),
             base + ".tar.gz");
       },
       FinishCompress},
      {"UploadLogDirPathForCompress", Kind::kUpload, "PUT", "Upload", 10, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string logs = directory + "/logs";
         return ArchiveText(c.service.UploadLogDirPathForCompress(url, logs), logs + ".tar.gz");
       },
       FinishCompress},
      {"UploadLogFileForCompress", Kind::kUpload, "PUT", "Upload", 10, 60,
       [](Caller& c, Text url, Text directory) {
         const std::string path = UploadPath(directory);
         return ArchiveText(c.service.UploadLogFileForCompress(url, path), path + ".tar.gz");
       },
       FinishCompress},
      {"GetPropertyString", Kind::kApollo, "POST", "GetPropertyString", 5, 5,
       [](Caller& c, Text host, Text) {
         LumApolloEnv env{host, "app", "", "space"};
         const HttpResult result = c.apollo.GetPropertyString(env);
         return result.body + ", code " + std::to_string(result.code);
       },
       nullptr},
  };
}

std::string HostOf(const std::string& url) {
  const std::size_t begin = url.find("://") + 3;
  return url.substr(begin, url.find('/', begin) - begin);
}

// What the operation must give and log when its transfer ends like this.
Outcome Expected(const Operation& operation, const std::string& url, const std::string& directory,
                 const Ending& ending, const std::string& errorText) {
  Outcome expected;
  std::vector<std::string>& lines = expected.lines;
  const bool failed = ending.code != 0;
  const std::string reason = curl_easy_strerror(static_cast<CURLcode>(ending.code));
  const std::string verb = operation.verb;
  const std::string numbers = std::to_string(ending.code) +
                              ", code: " + std::to_string(ending.status) +
                              ", errorBuf: " + errorText;
  std::string body = failed ? verb + " failed for: " + errorText + " ." : ending.received;
  switch (operation.kind) {
    case Kind::kGeneral:
      if (failed) {
        lines.push_back(Line(kGeneralEngine, operation.function, 1,
                             verb + " failed for " + reason + ", ret: " + numbers));
        expected.value = WithCode(LumJson::Value(), -1);
      } else {
        LumJson::Value value;
        const bool good = value.Parse(body);
        if (!good) {
          lines.push_back(
              Line(kGeneralFile, operation.function, 1, "json parse(" + body + ") failed"));
        }
        expected.value = WithCode(value, good ? static_cast<int>(ending.status) : -1);
      }
      break;
    case Kind::kDownload: {
      const std::string path = DownloadPath(directory);
      lines.push_back(
          Line(kGeneralFile, "DownloadFile", 3, "download file " + url + " to " + path));
      lines.push_back(
          failed ? Line(kGeneralFile, "DownloadFile", 1, "curl_easy_perform() failed: " + reason)
                 : Line(kGeneralFile, "DownloadFile", 3, "download succeed, path: " + path));
      expected.value = (failed ? "-10000, file " : "0, file ") + ending.received;
      break;
    }
    case Kind::kApollo:
      if (failed) {
        lines.push_back(Line(kApolloEngine, operation.function, 1,
                             "POST(https://" + HostOf(url) +
                                 "/configs/app/default/space) failed "
                                 "for " +
                                 reason + ", rps: " + numbers));
      }
      expected.value = body + ", code " + std::to_string(failed ? -1 : ending.status);
      break;
    case Kind::kUpload:
      body = failed ? body : "";
      [[fallthrough]];
    case Kind::kService:
      if (failed) {
        lines.push_back(Line(kServiceEngine, operation.function, 1,
                             verb + " failed for " + reason + ", resOps: " + numbers));
      }
      expected.value =
          operation.finish(operation, url, static_cast<int>(ending.status), body, lines);
      break;
  }
  return expected;
}

// libcurl's error text in a log line of an engine.
std::string ErrorTextIn(const std::vector<std::string>& lines) {
  const std::string before = ", errorBuf: ";
  for (const std::string& line : lines) {
    const std::size_t at = line.find(before);
    if (at != std::string::npos) {
      return line.substr(at + before.size());
    }
  }
  return "";
}

std::string BlanksAtTheEndOf(const std::string& text) {
  // One of them stands before the content of a file.
  const std::size_t last = text.find_last_not_of(' ');
  const std::size_t count = text.size() - (last == std::string::npos ? 0 : last + 1);
  return count < 2 ? "no blanks" : std::string(count - 1, ' ');
}

// The lines with a star for the compressed length.
std::vector<std::string> WithoutGzipLength(std::vector<std::string> lines) {
  const std::string before = kGzipLength;
  for (std::string& line : lines) {
    const std::size_t at = line.find(before);
    if (at != std::string::npos && std::stoi(line.substr(at + before.size())) > 18) {
      line.replace(at + before.size(), std::string::npos, "*");
    }
  }
  return lines;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += "  " + line + "\n";
  }
  return text;
}

}  // namespace

Caller::Caller() {
  service.CurlGlobalInit();
  signedService.CurlGlobalInit();
  signedService.SetUploadLogDate("Sat, 21 Nov 2026 13:00:00 GMT");
  signedService.SetUploadLogAuthorisation("AWS key:signature");
  signedService.SetSecurityToken("security token");
}

std::string Caller::MakeFiles(const std::string& name) const {
  if (!Exists(m_directory.Path(name))) {
    m_directory.MakeDir(name);
    m_directory.Write(name + "/a.log", content);
    m_directory.MakeDir(name + "/logs");
    m_directory.Write(name + "/logs/a.log", content);
  }
  return m_directory.Path(name);
}

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
  for (const Operation& operation : Operations()) {
    if (wanted(operation)) {
      selected.push_back(operation);
    }
  }
  return selected;
}

ThreadLogs::ThreadLogs() {
  LumLogger::GetInstance().SetSink([](const LumLogger::Record& record) {
    const std::string directory = "BaseAPI/LumCurlHttp/src/";
    std::string file = record.file;
    if (file.compare(0, directory.size(), directory) == 0) {
      file.erase(0, directory.size());
    }
    if (t_lines != nullptr) {
      t_lines->push_back(Line(file, record.function, record.level,
                              std::string(record.message, record.messageLength)));
    }
  });
}

ThreadLogs::~ThreadLogs() {
  LumLogger::GetInstance().SetSink(nullptr);
}

Outcome RunOperation(Caller& caller, const Operation& operation, const std::string& url,
                     const std::string& owner) {
  Outcome outcome;
  const std::string directory = caller.MakeFiles(owner + operation.name);
  t_lines = &outcome.lines;
  const auto start = std::chrono::steady_clock::now();
  outcome.value =
      operation.run(caller, operation.kind == Kind::kApollo ? HostOf(url) : url, directory);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  t_lines = nullptr;
  outcome.directory = directory;
  return outcome;
}

const Ending& ExpectEnding(const Operation& operation, const std::string& url,
                           const Outcome& outcome, const std::vector<Ending>& endings) {
  const std::string errorText = ErrorTextIn(outcome.lines);
  std::string wanted;
  for (const Ending& ending : endings) {
    Ending exact = ending;
    if (ending.received == Ending::kBlanks) {
      exact.received = BlanksAtTheEndOf(outcome.value);
    }
    Outcome expected =
        Expected(operation, url, outcome.directory, exact, ending.code == 0 ? "" : errorText);
    if (outcome.value.find(kLastError) == std::string::npos) {
      expected.value.resize(std::min(expected.value.size(), expected.value.find(kLastError)));
    }
    const bool saysWhy = ending.code == 0 || operation.kind == Kind::kDownload ||
                         ::testing::Matches(::testing::MatchesRegex(ending.error))(errorText);
    if (saysWhy && outcome.value == expected.value &&
        WithoutGzipLength(outcome.lines) == expected.lines) {
      return ending;
    }
    wanted += " " + expected.value + "\n" + Joined(expected.lines) + "  error text like " +
              ending.error + "\n";
  }
  ADD_FAILURE() << operation.name << " gave\n " << outcome.value << "\n"
                << Joined(outcome.lines) << "which is none of\n"
                << wanted;
  return endings.front();
}

}  // namespace lumtest
