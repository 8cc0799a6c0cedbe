// What the unit tests of the general client share.

#ifndef LUM_TEST_HTTP_HTTPTEST_H
#define LUM_TEST_HTTP_HTTPTEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "LumCurlHttp.h"
#include "LumCurlHttpPrivate.h"
#include "recording/RecordingTest.h"

namespace lumtest {

const char kHttpPath[] = "BaseAPI/LumCurlHttp/src/LumCurlHttp";
const char kEnginePath[] = "BaseAPI/LumCurlHttp/src/LumCurlHttpPrivate";

const char kUrl[] = "http://server.example/path?q=1";
const char kCa[] = "/tls/ca.pem";
const char kCertificate[] = "/tls/client.pem";
const char kKey[] = "/tls/client.key";

// A reply of `status` with this body.
inline Script Reply(const std::string& body, long status = 200) {
  Script script;
  script.status = status;
  script.chunks = {body};
  return script;
}

// A transfer that libcurl gives up.
inline Script Failure(CURLcode result, const std::string& errorText, long status = 0) {
  Script script;
  script.result = result;
  script.errorText = errorText;
  script.status = status;
  return script;
}

inline unsigned char* Bytes(std::string& text) {
  return reinterpret_cast<unsigned char*>(&text[0]);
}

// SetSslInfo with a pass phrase whose length is that of the text.
inline void SetSsl(LumCurlHttp& client, std::string passPhrase) {
  client.SetSslInfo(kCa, kCertificate, kKey, Bytes(passPhrase),
                    static_cast<int>(passPhrase.size()));
}

// Get and Post behave alike in most things.
struct Method {
  const char* name;
  const char* verb;  // in messages
  LumJson::Value (LumCurlHttp::*call)(const std::string&, const std::string&, bool, int&);
  HttpResult (LumCurlHttpPrivate::*engineCall)(const std::string&, const std::string&, bool);
};

inline std::ostream& operator<<(std::ostream& out, const Method& method) {
  return out << method.name;
}

const Method kGet = {"Get", "GET", &LumCurlHttp::Get, &LumCurlHttpPrivate::Get};
const Method kPost = {"Post", "POST", &LumCurlHttp::Post, &LumCurlHttpPrivate::Post};

class HttpTest : public RecordingTest {
 protected:
  HttpTest() { recorder.Reset(); }  // the client's construction

  LumCurlHttpPrivate& Engine() { return *client.d_pointer; }

  // Certificates and a pass phrase, with no event left of their setting.
  void PrepareSsl(const std::string& passPhrase = "secret") {
    SetSsl(client, passPhrase);
    recorder.Reset();
  }

  LumJson::Value Call(const Method& method, const std::string& url = kUrl, bool useSsl = false,
                      const std::string& body = "{}") {
    return (client.*method.call)(url, body, useSsl, responseCode);
  }

  HttpResult CallEngine(const Method& method, bool useSsl = false, const std::string& body = "{}") {
    return (Engine().*method.engineCall)(kUrl, body, useSsl);
  }

  // The one transfer that has been performed.
  Transfer TheTransfer() const {
    const auto transfers = recorder.Transfers();
    EXPECT_EQ(transfers.size(), 1u);
    return transfers.empty() ? Transfer() : transfers.front();
  }

  // The latest one.
  Transfer LastTransfer() const {
    const auto transfers = recorder.Transfers();
    EXPECT_FALSE(transfers.empty());
    return transfers.empty() ? Transfer() : transfers.back();
  }

  // The latest event.
  std::string LastEvent() const {
    const Events events = recorder.Events();
    return events.empty() ? std::string() : events.back();
  }

  LumCurlHttp client;
  int responseCode = 7;
};

// The tests that hold for Get and for Post.
class HttpRequest : public HttpTest, public ::testing::WithParamInterface<Method> {
 protected:
  std::string Message(const std::string& text) const { return GetParam().verb + text; }
};

}  // namespace lumtest

#endif  // LUM_TEST_HTTP_HTTPTEST_H
