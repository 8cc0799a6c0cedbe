// What the unit tests of the general client share.

#ifndef LUM_TEST_HTTP_HTTPTEST_H
#define LUM_TEST_HTTP_HTTPTEST_H

#include <ostream>
#include <string>

#include "LumCurlHttp.h"
#include "LumCurlHttpPrivate.h"
#include "recording/RecordingTest.h"

namespace lumtest {

const char kUrl[] = "http://server.example/path?q=1";
const char kCa[] = "/tls/ca.pem";
const char kCertificate[] = "/tls/client.pem";
const char kKey[] = "/tls/client.key";

// SetSslInfo with a pass phrase whose length is that of the text.
inline void SetSsl(LumCurlHttp& client, std::string passPhrase) {
  client.SetSslInfo(kCa, kCertificate, kKey, reinterpret_cast<unsigned char*>(passPhrase.data()),
                    static_cast<int>(passPhrase.size()));
}

// Get and Post behave alike in most things.
struct Method {
  const char* name;
  const char* verb;  // in messages
  LumJson::Value (LumCurlHttp::*call)(const std::string&, const std::string&, bool, int&);
  HttpResult (LumCurlHttpPrivate::*engineCall)(const std::string&, const std::string&, bool);
  Events options;  // its own, with a body of seven bytes
};

inline std::ostream& operator<<(std::ostream& out, const Method& method) {
  return out << method.name;
}

const Method kGet = {
    "Get", "GET", &LumCurlHttp::Get, &LumCurlHttpPrivate::Get, {"CURLOPT_HTTPGET 1"}};
const Method kPost = {"Post",
                      "POST",
                      &LumCurlHttp::Post,
                      &LumCurlHttpPrivate::Post,
                      {"CURLOPT_POST 1", "CURLOPT_POSTFIELDS pointer", "CURLOPT_POSTFIELDSIZE 7"}};

class HttpTest : public RecordingTest {
 protected:
  HttpTest() { recorder.Reset(); }  // the client's construction

  LumCurlHttpPrivate& Engine() { return *client.d_pointer; }

  // Certificates and a pass phrase, with no event left of their setting.
  void PrepareSsl(const std::string& passPhrase = "secret") {
    SetSsl(client, passPhrase);
    Forget();
  }

  LumJson::Value Call(const Method& method, const std::string& url = kUrl, bool useSsl = false,
                      const std::string& body = "{\"a\":1}") {
    return (client.*method.call)(url, body, useSsl, responseCode);
  }

  HttpResult CallEngine(const Method& method) {
    return (Engine().*method.engineCall)(kUrl, "{\"a\":1}", false);
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
