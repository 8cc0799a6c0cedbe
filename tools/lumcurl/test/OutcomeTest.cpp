// The wording is the library's; the live tests see the same lines come out of the library itself.

#include "Outcome.h"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kUrl = "http://h/p, result=200";  // as misleading as a URL can be
const std::string kDocument = "{\n    \"a\": \", result=1, \"\n}\n";

Facts Read(const std::string& message) {
  FactReader reader(kUrl, kDocument);
  reader.Read(message);
  return reader.Told();
}

// Of each client, and one whose buffer is empty.
TEST(FactReader, ReadsTransferFailures) {
  const struct {
    std::string message;
    int curlResult;
    int status;
    std::string text;
  } kLines[] = {
      {"GET failed for Couldn't connect to server, ret: 7, code: 0, errorBuf: Failed to connect to "
       "127.0.0.1 port 1 after 0 ms: Couldn't connect to server",
       7, 0, "Failed to connect to 127.0.0.1 port 1 after 0 ms: Couldn't connect to server"},
      {"PUT failed for Timeout was reached, resOps: 28, code: 200, errorBuf: late", 28, 200,
       "late"},
      {"POST failed for Out of memory, ret: 27, code: 0, errorBuf: ", 27, 0, "Out of memory"},
      {"POST(" + kUrl + ") failed for SSL connect error, rps: 35, code: 0, errorBuf: bad", 35, 0,
       "bad"}};
  for (const auto& line : kLines) {
    SCOPED_TRACE(line.message);
    const Facts facts = Read(line.message);
    EXPECT_EQ(facts.curlResult, line.curlResult);
    EXPECT_EQ(facts.status, line.status);
    EXPECT_EQ(facts.curlText, line.text);
    EXPECT_TRUE(facts.refused);
  }
}

TEST(FactReader, FindsTheResultOfADownloadByItsWords) {
  for (const CURLcode code : {CURLE_COULDNT_CONNECT, CURLE_WRITE_ERROR, CURLE_OPERATION_TIMEDOUT,
                              CURLE_PARTIAL_FILE, CURLE_PEER_FAILED_VERIFICATION}) {
    EXPECT_EQ(
        Read(std::string("curl_easy_perform() failed: ") + curl_easy_strerror(code)).curlResult,
        code);
  }
  EXPECT_NE(Read("curl_easy_perform() failed: in words of tomorrow").curlResult, 0);
}

TEST(FactReader, ReadsStatusesAndReplies) {
  const struct {
    std::string message;
    std::optional<int> status;
    std::string reply;
    bool notJson = false;
  } kLines[] = {
      {"Post failed url=" + kUrl + ", result=503:busy, result=1", 503, "busy, result=1"},
      {"Post failed url=" + kUrl + ", result=401:no src Length=3", 401, "no src Length=3"},
      {"Post failed, url=" + kUrl + ", request=" + kDocument + ", result=404, none", 404, "none"},
      {"Put failed error:500, down", 500, "down"},
      {"Get failed, url=" + kUrl + ", result=204, ", 204, ""},
      {"Post failed, url=" + kUrl + ", result=-1, ", -1, ""},
      {"UploadLog failed, code=403, body=x", 403, "x"},
      {"Get from " + kUrl + " failed, json body: gone", std::nullopt, "gone"},
      {"json parse(<html>) failed) failed", std::nullopt, "<html>) failed", true},
      {"parse json body failed, json body: <p>", std::nullopt, "<p>", true}};
  for (const auto& line : kLines) {
    SCOPED_TRACE(line.message);
    const Facts facts = Read(line.message);
    EXPECT_EQ(facts.status, line.status);
    EXPECT_EQ(facts.reply, line.reply);
    EXPECT_EQ(facts.notJson, line.notJson);
    EXPECT_EQ(facts.refused, !line.notJson);
  }
}

TEST(FactReader, KeepsTheStartOfAReplyOnly) {
  EXPECT_EQ(Read("json parse(" + std::string(100000, 'x') + ") failed").reply,
            std::string(4096, 'x'));
  EXPECT_EQ(Read("Put failed error:500, " + std::string(100000, 'x')).reply,
            std::string(4096, 'x'));
}

TEST(FactReader, KnowsTheSteps) {
  EXPECT_TRUE(Read("fopen failed").fileNotOpened);
  EXPECT_TRUE(Read("read file error").fileNotOpened);
  EXPECT_TRUE(Read("compress file failed").compressFailed);
  EXPECT_TRUE(Read("gzip compress error").compressFailed);
  EXPECT_TRUE(Read("upload file failed").uploadFailed);
  EXPECT_TRUE(Read("remove file failed").removeFailed);
  EXPECT_TRUE(Read("Update interface name=").noInterface);
  EXPECT_FALSE(Read("Update interface name=eth0").noInterface);
}

TEST(FactReader, PassesOverOtherLines) {
  for (const char* message : {"Set domain=h:80:127.0.0.1", "UploadLog failed"}) {
    const Facts facts = Read(message);
    EXPECT_EQ(facts.curlResult, 0);
    EXPECT_FALSE(facts.status);
    EXPECT_FALSE(facts.refused);
    EXPECT_FALSE(facts.notJson);
  }
}

TEST(JudgeTransfer, TellsTheClassesApart) {
  const std::pair<Exit, std::vector<CURLcode>> kClasses[] = {
      {Exit::kUsage, {CURLE_URL_MALFORMAT}},
      {Exit::kNetwork,
       {CURLE_COULDNT_CONNECT, CURLE_COULDNT_RESOLVE_HOST, CURLE_GOT_NOTHING, CURLE_SEND_ERROR,
        CURLE_RECV_ERROR, CURLE_PARTIAL_FILE, CURLE_UNSUPPORTED_PROTOCOL, CURLE_WEIRD_SERVER_REPLY,
        CURLE_INTERFACE_FAILED, CURLE_SEND_FAIL_REWIND}},
      {Exit::kTimeout, {CURLE_OPERATION_TIMEDOUT}},
      {Exit::kTls,
       {CURLE_SSL_CONNECT_ERROR, CURLE_SSL_CERTPROBLEM, CURLE_PEER_FAILED_VERIFICATION,
        CURLE_SSL_CACERT_BADFILE, CURLE_SSL_CLIENTCERT, CURLE_SSL_CIPHER}},
      {Exit::kFile, {CURLE_WRITE_ERROR, CURLE_READ_ERROR}},
      {Exit::kOther, {CURLE_OUT_OF_MEMORY, CURLE_BAD_FUNCTION_ARGUMENT}}};
  for (const auto& [exit, codes] : kClasses) {
    for (const CURLcode code : codes) {
      EXPECT_EQ(JudgeTransfer(code, "", 5).exit, exit) << code;
    }
  }
  EXPECT_EQ(
      JudgeTransfer(CURLE_BAD_FUNCTION_ARGUMENT, "unable to set private key file: 'k'", 5).advice,
      JudgeTransfer(CURLE_SSL_CERTPROBLEM, "", 5).advice);
}

TEST(TellsOfPacking, KnowsTheFunctionsThatPackMembers) {
  EXPECT_TRUE(TellsOfPacking("PackMember"));
  EXPECT_TRUE(TellsOfPacking("AddFile"));
  EXPECT_FALSE(TellsOfPacking("UploadLog"));
}

TEST(JudgeTransfer, SaysTheTimeLimitWhereItWasTheWholeTransfers) {
  const char kWhole[] = "Operation timed out after 5001 milliseconds with 0 bytes received";
  EXPECT_THAT(JudgeTransfer(CURLE_OPERATION_TIMEDOUT, kWhole, 5).reason, HasSubstr("5 s"));
  EXPECT_THAT(JudgeTransfer(CURLE_OPERATION_TIMEDOUT, kWhole, 0).reason, Not(HasSubstr("limit")));
  EXPECT_THAT(
      JudgeTransfer(CURLE_OPERATION_TIMEDOUT, "Connection timed out after 4000 ms", 60).reason,
      Not(HasSubstr("limit")));
}

TEST(JudgeTransfer, CountsAnAlertThatComesLateAsTls) {
  EXPECT_EQ(JudgeTransfer(CURLE_RECV_ERROR,
                          "OpenSSL SSL_read: error:0A00045C:SSL routines::tlsv13 alert certificate "
                          "required, errno 0",
                          5)
                .exit,
            Exit::kTls);
}

TEST(JudgeTransfer, HasAdviceForEveryResult) {
  for (int code = 1; code < CURL_LAST; ++code) {
    const Verdict verdict = JudgeTransfer(code, curl_easy_strerror(CURLcode(code)), 5);
    EXPECT_NE(verdict.exit, Exit::kDone) << code;
    EXPECT_FALSE(verdict.reason.empty()) << code;
    EXPECT_FALSE(verdict.advice.empty()) << code;
  }
}

TEST(JudgeStatus, GoesByTheFirstDigit) {
  for (int status = 100; status < 600; ++status) {
    const Verdict verdict = JudgeStatus(status);
    const Exit expected = status >= 500   ? Exit::kServerError
                          : status >= 400 ? Exit::kClientError
                                          : Exit::kOther;
    EXPECT_EQ(verdict.exit, expected) << status;
    EXPECT_NE(verdict.reason.find(std::to_string(status)), std::string::npos);
    EXPECT_FALSE(verdict.advice.empty());
  }
}

TEST(LooksLikeErrorPage, KnowsTheUsualForms) {
  constexpr char kFile[] = "http://h/firmware.bin";
  for (const char* page :
       {"<html>\r\n<head><title>404 Not Found</title></head>",
        "\xEF\xBB\xBF\n<!DOCTYPE HTML><p>hello",
        "<?xml version=\"1.0\"?>\n<Error><Code>NoSuchKey</Code>", "{\"error\": \"no such file\"}",
        "Not Found\n", "503 Service Unavailable"}) {
    EXPECT_TRUE(LooksLikeErrorPage(kFile, page)) << page;
  }
  for (const std::string& content :
       {std::string(),
        std::string("\x7f"
                    "ELF"),
        std::string("{\"state\":\"on\"}"), std::string("<?xml version=\"1.0\"?><map>"),
        "not found" + std::string(1000, 'x')}) {
    EXPECT_FALSE(LooksLikeErrorPage(kFile, content)) << content;
  }
  EXPECT_FALSE(LooksLikeErrorPage("http://h/index.html?x", "<html><p>hello"));
  EXPECT_TRUE(LooksLikeErrorPage("http://h/index.html", "<html><h1>403 Forbidden"));
}

}  // namespace
