// LumApollo against nginx, which serves the answers of a configuration centre from files.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <gtest/gtest.h>

#include <string>

#include "Nginx.h"
#include "log/LogCapture.h"

namespace lumtest {
namespace {

constexpr char kAnswer[] =
    "{\"appId\":\"app\",\"cluster\":\"default\",\"namespaceName\":\"application\","
    "\"configurations\":{\"timeout\":\"200\"},\"releaseKey\":\"20261121-1\"}";

class ConfigurationClientNginx : public NginxTest {
 protected:
  static void SetUpTestSuite() {
    NginxTest::SetUpTestSuite();
    for (const char* part : {"", "/app", "/app/default"}) {
      ASSERT_EQ(0, RunCommand({"mkdir", "-p", nginx->Root() + "/configs" + part}).exitStatus);
    }
    WriteFile(nginx->Root() + "/configs/app/default/application", kAnswer);
  }
  LogCapture log;
  LumApollo apollo;
};

TEST_F(ConfigurationClientNginx, HandsTheAnswerOnUnchanged) {
  LumApolloEnv env{nginx->OpenHttpsHost(), "app", "", "application"};
  const HttpResult result = apollo.GetPropertyString(env);
  EXPECT_EQ(200, result.code);
  EXPECT_EQ(kAnswer, result.body);
  EXPECT_EQ("default", env.cluster);
}

TEST_F(ConfigurationClientNginx, HandsAnErrorStatusOnWithItsBody) {
  LumApolloEnv env{nginx->OpenHttpsHost(), "app", "default", "unknown"};
  const HttpResult result = apollo.GetPropertyString(env);
  EXPECT_EQ(404, result.code);
  EXPECT_EQ("{\"status\": 404}", result.body);
  EXPECT_EQ(0u, log.Count());
}

TEST_F(ConfigurationClientNginx, FailsOnceNobodyListens) {
  auto* gone = new Nginx;
  LumApolloEnv env{gone->OpenHttpsHost(), "app", "default", "application"};
  delete gone;
  const HttpResult result = apollo.GetPropertyString(env);
  EXPECT_EQ(-1, result.code);
  EXPECT_EQ(0u, result.body.find("POST failed for: "));
  EXPECT_EQ(1u, log.Count(LumLogger::kError));
}

}  // namespace
}  // namespace lumtest
