// What the live tests of the clients share: libcurl initialised once, a log capture, servers, TLS
// material, and the watch over standard output.

#ifndef LUM_TEST_HTTP_LIVETEST_H
#define LUM_TEST_HTTP_LIVETEST_H

#include <LumCurlHttp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "log/LogCapture.h"
#include "support/CaptureFd.h"
#include "support/Files.h"
#include "tls/TlsMaterial.h"
#include "wire/CurlText.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {

const char kPassPhrase[] = "pass phrase of the key";

class LiveEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    // libcurl would send the requests there.
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
      unsetenv(name);
    }
    ASSERT_EQ(LumCurlHttp::CurlGlobalInit(), 0);
  }

  // Here, not in a destructor: a child process that ends runs those too.
  void TearDown() override {
    delete m_dir;
    m_dir = nullptr;
  }

  const TlsMaterial& Tls() {
    if (m_dir == nullptr) {
      m_dir = new TempDir;
      m_tls = lumtools::MakeTlsMaterial(m_dir->Path("tls"), kPassPhrase);
    }
    return m_tls;
  }

 private:
  inline static TempDir* m_dir = nullptr;
  TlsMaterial m_tls;
};

inline LiveEnvironment* const kLiveEnvironment =
    static_cast<LiveEnvironment*>(::testing::AddGlobalTestEnvironment(new LiveEnvironment));

// Made on first use, once for the whole program.
inline const TlsMaterial& Tls() {
  return kLiveEnvironment->Tls();
}

// A TLS server with this certificate.
inline WireOptions TlsOptions(const std::string& certificate, const std::string& key) {
  WireOptions options;
  options.tls.emplace();
  options.tls->certificate = certificate;
  options.tls->key = key;
  return options;
}

// A TLS server with the good certificate.
inline WireOptions TlsOptions(
    WireTls::ClientCertificate clientCertificate = WireTls::ClientCertificate::kNone) {
  WireOptions options = TlsOptions(Tls().serverCertificate, Tls().serverKey);
  options.tls->clientCertificate = clientCertificate;
  options.tls->clientCa = Tls().caCertificate;
  return options;
}

// For replies that say the same again and again.
inline std::string Times(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

inline WireOptions IPv6Options() {
  WireOptions options;
  options.address = "::1";
  return options;
}

class LiveTest : public ::testing::Test {
 protected:
  // Runs `call`, which must write nothing to standard output.
  template <typename Call>
  static auto Quietly(Call call) {
    CaptureStdout out;
    auto result = call();
    EXPECT_EQ(out.Stop(), "");
    return result;
  }

  LogCapture log;
};

}  // namespace lumtest

#endif  // LUM_TEST_HTTP_LIVETEST_H
