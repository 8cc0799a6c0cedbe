// The fixture of the service client's unit tests.

#include "ServiceTest.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace lumtest {

namespace {

const std::string kClientPath = "BaseAPI/LumCurlHttp/src/LumCurlOrvOps";
const std::string kEnginePath = "BaseAPI/LumCurlHttp/src/LumCurlOrvOpsPrivate";

std::string Render(const std::string& file, int level, const std::string& function,
                   const std::string& format, const Events& arguments) {
  std::string text = file + " " + std::to_string(level) + " " + function + " " + format;
  for (const std::string& argument : arguments) {
    text += " <" + argument + ">";
  }
  return text;
}

void CheckOrigin(const LogLine& log) {
  SCOPED_TRACE(log.message);
  EXPECT_TRUE(log.asked) << "the logger was not asked for this very line";
  EXPECT_EQ(log.tag, " ");
  EXPECT_EQ(log.detail, "");
  ASSERT_THAT(log.file, ::testing::AnyOf(kClientPath, kEnginePath));
  const std::string statement = StatementAt(log.file, log.line);
  static const char* const kLevels[] = {"", "kLogError", "kLogWarning", "kLogInfo"};
  ASSERT_GE(log.level, 1);
  ASSERT_LE(log.level, 3);
  EXPECT_THAT(statement, ::testing::StartsWith(std::string("LUM_LOG(") + kLevels[log.level] + ","));
  EXPECT_THAT(statement, ::testing::HasSubstr("\"" + log.format + "\""));
}

std::string RenderList(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += "[" + line + "]";
  }
  return text;
}

Events Start() {
  return {"memset_s 4096 0 4096", "curl_easy_init"};
}

Events ListEvents(const Lines& lines) {
  Events events;
  for (const std::string& line : lines) {
    events.push_back("curl_slist_append " + line);
  }
  if (!lines.empty()) {
    events.push_back("CURLOPT_HTTPHEADER " + RenderList(lines));
  }
  return events;
}

Events Verification() {
  return {"CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0"};
}

Events Run() {
  return {"curl_easy_perform", "CURLINFO_RESPONSE_CODE"};
}

Events End(const Lines& lines) {
  Events events;
  if (!lines.empty()) {
    Lines sent;
    std::transform(lines.begin(), lines.end(), std::back_inserter(sent), Sent);
    events.push_back("curl_slist_free_all " + RenderList(sent));
  }
  events.emplace_back("curl_easy_cleanup");
  return events;
}

}  // namespace

Events operator+(Events first, const Events& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

ServiceTest::ServiceTest() {
  recorder.Reset();
}

void ServiceTest::TearDown() {
  for (const LogLine& log : recorder.Logs()) {
    CheckOrigin(log);
  }
  EXPECT_EQ(recorder.LiveHandles(), 0);
  EXPECT_EQ(recorder.LiveLists(), keptLists);
  EXPECT_EQ(recorder.LiveFiles(), 0);
}

void ServiceTest::DropPrivate() {
  delete client.d_pointer;
  client.d_pointer = nullptr;
}

Events ServiceTest::Logs() const {
  Events texts;
  for (const LogLine& log : recorder.Logs()) {
    texts.push_back(Render(log.file, log.level, log.function, log.format, log.arguments));
  }
  return texts;
}

void ServiceTest::UseCertificate(const std::string& passPhrase) {
  std::string bytes = passPhrase;
  client.SetSslInfo("/ca.pem", "/client.pem", "/client.key",
                    reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  Forget();
}

std::string ClientLog(int level, const std::string& function, const std::string& format,
                      const Events& arguments) {
  return Render(kClientPath, level, function, format, arguments);
}

std::string EngineLog(int level, const std::string& function, const std::string& format,
                      const Events& arguments) {
  return Render(kEnginePath, level, function, format, arguments);
}

std::string Sent(const std::string& line) {
  const std::size_t colon = line.find(':');
  return colon != std::string::npos && line.substr(colon) == ": " ? line.substr(0, colon) + ";"
                                                                  : line;
}

Events GetEvents(const std::string& url, const Lines& lines) {
  return Start() + ListEvents(lines) + Events{"CURLOPT_URL " + url,
                                              "CURLOPT_POST 0",
                                              "CURLOPT_WRITEFUNCTION function",
                                              "CURLOPT_WRITEDATA pointer",
                                              "CURLOPT_NOSIGNAL 1",
                                              "CURLOPT_ERRORBUFFER 4096 zero bytes",
                                              "CURLOPT_CONNECTTIMEOUT 4",
                                              "CURLOPT_TIMEOUT 4"} +
         Verification() + Run() + End(lines);
}

Events PutEvents(const std::string& url, std::size_t length, const Lines& lines) {
  return Start() + ListEvents(lines) +
         Events{"CURLOPT_URL " + url,
                "CURLOPT_CUSTOMREQUEST PUT",
                "CURLOPT_POSTFIELDS pointer",
                "CURLOPT_POSTFIELDSIZE " + std::to_string(length),
                "CURLOPT_WRITEFUNCTION function",
                "CURLOPT_WRITEDATA pointer",
                "CURLOPT_ERRORBUFFER 4096 zero bytes",
                "CURLOPT_CONNECTTIMEOUT 4",
                "CURLOPT_TIMEOUT 4"} +
         Verification() + Run() + End(lines);
}

Events PostEvents(const std::string& url, std::size_t length, const Lines& lines,
                  const std::string& timeout) {
  return Start() + ListEvents(lines) +
         Events{"CURLOPT_URL " + url,
                "CURLOPT_POST 1",
                "CURLOPT_POSTFIELDS pointer",
                "CURLOPT_POSTFIELDSIZE " + std::to_string(length),
                "CURLOPT_WRITEFUNCTION function",
                "CURLOPT_WRITEDATA pointer",
                "CURLOPT_NOSIGNAL 1",
                "CURLOPT_ERRORBUFFER 4096 zero bytes",
                "CURLOPT_CONNECTTIMEOUT 4",
                "CURLOPT_TIMEOUT " + timeout} +
         Verification() + Run() + End(lines);
}

Events UploadEvents(const std::string& url, const std::string& path, std::size_t size,
                    const Lines& lines, const std::string& timeout) {
  return Start() +
         Events{"LumRealPath " + path + " " + std::to_string(path.size()), "fopen " + path + " rb",
                "fseek 0 from the end", "ftell", "fseek 0 from the start"} +
         ListEvents(lines) +
         Events{"CURLOPT_READFUNCTION function",
                "CURLOPT_UPLOAD 1",
                "CURLOPT_URL " + url,
                "CURLOPT_UPLOAD 1",
                "CURLOPT_READDATA pointer",
                "CURLOPT_INFILESIZE_LARGE " + std::to_string(size),
                "CURLOPT_ERRORBUFFER 4096 zero bytes",
                "CURLOPT_CONNECTTIMEOUT 10",
                "CURLOPT_TIMEOUT " + timeout} +
         Verification() + Run() + Events{"fclose"} + End(lines);
}

Events Failing(Events events, const std::string& log) {
  events.insert(events.end() - 1, log);
  return events;
}

Script Broken(CURLcode result, long status, const std::string& errorText,
              const std::vector<std::string>& chunks) {
  Script script;
  script.result = result;
  script.status = status;
  script.errorText = errorText;
  script.chunks = chunks;
  return script;
}

Script Answer(long status, const std::string& body) {
  Script script;
  script.status = status;
  if (!body.empty()) {
    script.chunks = {body};
  }
  return script;
}

}  // namespace lumtest
