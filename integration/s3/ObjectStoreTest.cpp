// Signed log uploads to an S3-compatible object store (AWS signature version 2).

#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <gmock/gmock.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <ctime>
#include <memory>
#include <string>

#include "log/LogCapture.h"
#include "support/CaptureFd.h"
#include "support/Files.h"
#include "support/Process.h"

namespace lumtest {
namespace {

// The store's built-in account.
constexpr char kAccess[] = "S3RVER";
constexpr char kSecret[] = "S3RVER";

std::string HttpDate() {
  const std::time_t now = std::time(nullptr);
  std::tm parts;
  gmtime_r(&now, &parts);
  char text[64];
  std::strftime(text, sizeof(text), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return text;
}

// The store signs over method, content MD5, content type, an empty date line, and path.
std::string Authorisation(const std::string& path, const std::string& secret) {
  const std::string text = "PUT\n\n\n\n" + path;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()),
       reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest, &length);
  unsigned char encoded[2 * EVP_MAX_MD_SIZE];
  EVP_EncodeBlock(encoded, digest, static_cast<int>(length));
  return std::string("AWS ") + kAccess + ":" + reinterpret_cast<char*>(encoded);
}

class ObjectStore : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    LumCurlHttp::CurlGlobalInit();
    objects = std::make_unique<TempDir>();
    store = std::make_unique<SpawnedProcess>(
        std::vector<std::string>{"node", STORE_SCRIPT, STORE_INSTALLED, objects->Path()});
    std::vector<std::string> groups;
    ASSERT_TRUE(store->WaitForLine("listening on (.*)", &groups)) << store->Err();
    base = "http://" + groups[1];
  }
  static void TearDownTestSuite() {
    store.reset();
    objects.reset();
  }

  void SetUp() override {
    service.CurlGlobalInit();
    service.SetUploadLogDate(HttpDate());
    service.SetSecurityToken("a security token");
    std::string content;
    for (int i = 0; i < 200000; ++i) {
      content += static_cast<char>(i * 7 >> 2);
    }
    file = directory.Write("device.log", content);
  }

  // Asked of the file that the store keeps.
  static std::string Stored(const std::string& name) {
    return ReadFile(objects->Path("logs/" + name + "._S3rver_object"));
  }

  static inline std::unique_ptr<TempDir> objects;
  static inline std::unique_ptr<SpawnedProcess> store;
  static inline std::string base;
  LogCapture log;
  CaptureStdout out;  // an upload's reply goes there
  TempDir directory;
  LumCurlOrvOps service;
  std::string file;
};

TEST_F(ObjectStore, AcceptsASignedLogAndKeepsItsBytes) {
  service.SetUploadLogAuthorisation(Authorisation("/logs/device.log", kSecret));
  EXPECT_EQ(0, service.UploadLog(base + "/logs/device.log", file)) << log.Text();
  EXPECT_EQ(ReadFile(file), Stored("device.log"));
}

TEST_F(ObjectStore, AcceptsASignedArchive) {
  service.SetUploadLogAuthorisation(Authorisation("/logs/device.log.tar.gz", kSecret));
  EXPECT_EQ(0, service.UploadLogFileForCompress(base + "/logs/device.log.tar.gz", file));
  EXPECT_FALSE(Exists(file + ".tar.gz"));
  const std::string archive = directory.Write("back.tar.gz", Stored("device.log.tar.gz"));
  const ProcessResult content = RunCommand({"tar", "xzOf", archive, "device.log"});
  EXPECT_TRUE(content.Succeeded()) << content.Describe();
  EXPECT_EQ(ReadFile(file), content.out);
}

TEST_F(ObjectStore, RefusesAWrongSignature) {
  service.SetUploadLogAuthorisation(Authorisation("/logs/refused.log", "another secret"));
  EXPECT_EQ(-10000, service.UploadLog(base + "/logs/refused.log", file));
  EXPECT_THAT(log.Messages(LumLogger::kError),
              testing::Contains("UploadLog failed, code=403, body="));
  EXPECT_THAT(out.Stop(), testing::HasSubstr("SignatureDoesNotMatch"));
  EXPECT_FALSE(Exists(objects->Path("logs/refused.log._S3rver_object")));
}

TEST_F(ObjectStore, RefusesASignatureOfAnotherDay) {
  service.SetUploadLogAuthorisation(Authorisation("/logs/late.log", kSecret));
  service.SetUploadLogDate("Mon, 01 Jan 2018 00:00:00 GMT");
  EXPECT_EQ(-10000, service.UploadLog(base + "/logs/late.log", file));
  EXPECT_FALSE(Exists(objects->Path("logs/late.log._S3rver_object")));
}

}  // namespace
}  // namespace lumtest
