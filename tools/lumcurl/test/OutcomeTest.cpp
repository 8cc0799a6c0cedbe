// The wording is the library's; the live tests see the same lines come out of the library itself.

#include "Outcome.h"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kUrl[] = "http://h/p, result=200";  // as misleading as a URL can be

Facts Read(const std::string& message, const std::string& document = "") {
  FactReader reader(kUrl, document);
  reader.Read(message);
  return reader.Told();
}

TEST(FactReader, ReadsTheGeneralClientsTransferFailure) {
  const Facts facts = Read(
      "GET failed for Couldn't connect to server, ret: 7, code: 0, errorBuf: Failed to connect to "
      "127.0.0.1 port 1 after 0 ms: Couldn't connect to server");
  EXPECT_EQ(facts.curlResult, 7);
  EXPECT_EQ(facts.status, 0);
  EXPECT_EQ(facts.curlText,
            "Failed to connect to 127.0.0.1 port 1 after 0 ms: Couldn't connect to server");
  EXPECT_TRUE(facts.refused);
}

TEST(FactReader, ReadsTheServiceClientsTransferFailures) {
  for (const char* method : {"GET", "PUT", "POST"}) {
    const Facts facts =
        Read(std::string(method) +
             " failed for Timeout was reached, resOps: 28, code: 200, errorBuf: late");
    EXPECT_EQ(facts.curlResult, 28) << method;
    EXPECT_EQ(facts.status, 200) << method;
    EXPECT_EQ(facts.curlText, "late") << method;
  }
}

TEST(FactReader, FallsBackToLibcurlsWordsWhereTheBufferIsEmpty) {
  EXPECT_EQ(Read("GET failed for Out of memory, ret: 27, code: 0, errorBuf: ").curlText,
            "Out of memory");
}

TEST(FactReader, ReadsTheConfigurationClientsTransferFailure) {
  const Facts facts = Read(std::string("POST(") + kUrl +
                           ") failed for SSL connect error, rps: 35, code: 0, errorBuf: bad");
  EXPECT_EQ(facts.curlResult, 35);
  EXPECT_EQ(facts.curlText, "bad");
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

TEST(FactReader, ReadsStatusAndReplyOfReports) {
  const Facts plain = Read(std::string("Post failed url=") + kUrl + ", result=503:busy, result=1");
  EXPECT_EQ(plain.status, 503);
  EXPECT_EQ(plain.reply, "busy, result=1");
  const Facts gzip =
      Read(std::string("Post failed url=") + kUrl + ", result=401:no src Length=3, gzip length=25");
  EXPECT_EQ(gzip.status, 401);
}

TEST(FactReader, ReadsStatusAndReplyOfTokens) {
  const std::string document = "{\n    \"a\": \", result=1, \"\n}\n";
  const Facts get =
      Read(std::string("Post failed, url=") + kUrl + ", request=" + document + ", result=404, none",
           document);
  EXPECT_EQ(get.status, 404);
  EXPECT_EQ(get.reply, "none");
  const Facts refresh = Read("Put failed error:500, down");
  EXPECT_EQ(refresh.status, 500);
  EXPECT_EQ(refresh.reply, "down");
}

TEST(FactReader, ReadsStatusAndReplyOfJsonRequests) {
  EXPECT_EQ(Read(std::string("Get failed, url=") + kUrl + ", result=204, ").status, 204);
  const Facts post = Read(std::string("Post failed, url=") + kUrl + ", result=-1, ");
  EXPECT_EQ(post.status, -1);
  EXPECT_EQ(post.reply, "");
}

TEST(FactReader, ReadsStatusOfSignedUploads) {
  const Facts facts = Read("UploadLog failed, code=403, body=x");
  EXPECT_EQ(facts.status, 403);
  EXPECT_EQ(facts.reply, "x");
  EXPECT_FALSE(Read("UploadLog failed").status);
}

TEST(FactReader, ReadsTheReplyToALogAddress) {
  const Facts facts = Read(std::string("Get from ") + kUrl + " failed, json body: gone");
  EXPECT_TRUE(facts.refused);
  EXPECT_EQ(facts.reply, "gone");
  EXPECT_FALSE(facts.status);
}

TEST(FactReader, KnowsAnswersThatAreNotJson) {
  const Facts general = Read("json parse(<html>) failed) failed");
  EXPECT_TRUE(general.notJson);
  EXPECT_EQ(general.reply, "<html>) failed");
  const Facts service = Read("parse json body failed, json body: <p>");
  EXPECT_TRUE(service.notJson);
  EXPECT_EQ(service.reply, "<p>");
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
  const Facts facts = Read("Set domain=h:80:127.0.0.1");
  EXPECT_EQ(facts.curlResult, 0);
  EXPECT_FALSE(facts.status);
  EXPECT_FALSE(facts.refused);
  EXPECT_FALSE(facts.notJson);
}

TEST(JudgeTransfer, TellsTheClassesApart) {
  EXPECT_EQ(JudgeTransfer(CURLE_URL_MALFORMAT, "", 5).exit, Exit::kUsage);
  for (const CURLcode code :
       {CURLE_COULDNT_CONNECT, CURLE_COULDNT_RESOLVE_HOST, CURLE_GOT_NOTHING, CURLE_SEND_ERROR,
        CURLE_RECV_ERROR, CURLE_PARTIAL_FILE, CURLE_UNSUPPORTED_PROTOCOL, CURLE_WEIRD_SERVER_REPLY,
        CURLE_INTERFACE_FAILED, CURLE_SEND_FAIL_REWIND}) {
    EXPECT_EQ(JudgeTransfer(code, "", 5).exit, Exit::kNetwork) << code;
  }
  EXPECT_EQ(JudgeTransfer(CURLE_OPERATION_TIMEDOUT, "", 5).exit, Exit::kTimeout);
  for (const CURLcode code :
       {CURLE_SSL_CONNECT_ERROR, CURLE_SSL_CERTPROBLEM, CURLE_PEER_FAILED_VERIFICATION,
        CURLE_SSL_CACERT_BADFILE, CURLE_SSL_CLIENTCERT, CURLE_SSL_CIPHER}) {
    EXPECT_EQ(JudgeTransfer(code, "", 5).exit, Exit::kTls) << code;
  }
  for (const CURLcode code : {CURLE_WRITE_ERROR, CURLE_READ_ERROR}) {
    EXPECT_EQ(JudgeTransfer(code, "", 5).exit, Exit::kFile) << code;
  }
  EXPECT_EQ(JudgeTransfer(CURLE_OUT_OF_MEMORY, "", 5).exit, Exit::kOther);
  EXPECT_EQ(JudgeTransfer(CURLE_BAD_FUNCTION_ARGUMENT, "", 5).exit, Exit::kOther);
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
