// The configuration centre.
#include <unistd.h>

#include "BackendFixture.h"

namespace {

class ApolloTest : public lumtest::BackendFixture {
 protected:
  ApolloTest() {
    Subject();
    for (const char* name : {"configs/app", "configs/app/default", "configs/app/east"}) {
      m_temp.MakeDir(name);
    }
  }

  std::string ErrorAt(const std::string& target, int status) {
    return Json(target, status)["error"].AsString();
  }
};

TEST_F(ApolloTest, ServesPropertiesInTheOrderOfTheFile) {
  m_temp.Write("configs/app/east/application.properties",
               "# settings\nz.url=http\\://x\na = 1\nname=\\u4f60\n");
  const LumJson::Value answer = Json("/configs/app/east/application");
  EXPECT_EQ(answer["appId"].AsString(), "app");
  EXPECT_EQ(answer["cluster"].AsString(), "east");
  EXPECT_EQ(answer["namespaceName"].AsString(), "application");
  EXPECT_EQ(answer["configurations"].JsonValueToString(),
            "{\"z.url\":\"http://x\",\"a\":\"1\",\"name\":\"\xE4\xBD\xA0\"}");
  EXPECT_EQ(answer["releaseKey"].AsString().size(), 32u);
  EXPECT_EQ(answer.Size(), 5u);
}

TEST_F(ApolloTest, ServesJsonAsOneProperty) {
  const std::string text = "{\n  \"a\": [1, 2]\n}\n";
  m_temp.Write("configs/app/default/sources.json", text);
  for (const char* name : {"sources.json", "sources"}) {
    const LumJson::Value answer = Json(std::string("/configs/app/default/") + name);
    EXPECT_EQ(answer["namespaceName"].AsString(), name);
    EXPECT_EQ(answer["configurations"]["content"].AsString(), text);
    EXPECT_EQ(answer["configurations"].Size(), 1u);
  }
}

TEST_F(ApolloTest, PropertiesComeBeforeJson) {
  m_temp.Write("configs/app/default/n.properties", "a=1");
  m_temp.Write("configs/app/default/n.json", "{}");
  EXPECT_TRUE(Json("/configs/app/default/n")["configurations"].Has("a"));
  EXPECT_TRUE(Json("/configs/app/default/n.properties")["configurations"].Has("a"));
  EXPECT_TRUE(Json("/configs/app/default/n.json")["configurations"].Has("content"));
}

TEST_F(ApolloTest, AnEmptyNamespaceHasNoConfigurations) {
  m_temp.Write("configs/app/default/empty.properties", "");
  EXPECT_EQ(Json("/configs/app/default/empty")["configurations"].JsonValueToString(), "{}");
}

TEST_F(ApolloTest, FallsBackToTheDefaultCluster) {
  m_temp.Write("configs/app/default/n.properties", "from=default");
  EXPECT_EQ(Json("/configs/app/east/n")["cluster"].AsString(), "default");
  EXPECT_EQ(Json("/configs/app/unknown/n")["configurations"]["from"].AsString(), "default");
  m_temp.Write("configs/app/east/n.properties", "from=east");
  EXPECT_EQ(Json("/configs/app/east/n")["configurations"]["from"].AsString(), "east");
}

TEST_F(ApolloTest, UnknownNamespacesAre404) {
  EXPECT_EQ(ErrorAt("/configs/app/east/none", 404),
            "no namespace 'none' of application 'app' in cluster 'east' or 'default'");
  Json("/configs/none/east/none", 404);
  Json("/configs/app/east", 404);
  Json("/configs/app/east/a/b", 404);
}

TEST_F(ApolloTest, AMatchingReleaseKeyIs304UntilTheContentChanges) {
  m_temp.Write("configs/app/default/n.properties", "a=1");
  const std::string key = Json("/configs/app/default/n")["releaseKey"].AsString();
  const std::string target = "/configs/app/default/n?ip=1.2.3.4&releaseKey=" + key;
  const Reply unchanged = Ask("GET", target);
  EXPECT_EQ(unchanged.status, 304);
  EXPECT_EQ(unchanged.body, "");
  Json("/configs/app/default/n?releaseKey=other");
  m_temp.Write("configs/app/default/n.properties", "a=2");
  EXPECT_NE(Json(target)["releaseKey"].AsString(), key);
  m_temp.Write("configs/app/default/n.properties", "a=1");
  EXPECT_EQ(Ask("GET", target).status, 304);
}

TEST_F(ApolloTest, BadFilesAreNamed) {
  m_temp.Write("configs/app/default/bad.properties", "a=1\nb=\\u12");
  EXPECT_EQ(ErrorAt("/configs/app/default/bad", 500), "bad.properties: line 2: malformed \\uXXXX");
  m_temp.Write("configs/app/default/latin.json", "{\"a\":\"\xE9\"}");
  EXPECT_EQ(ErrorAt("/configs/app/default/latin", 500), "latin.json: not UTF-8");
}

TEST_F(ApolloTest, NamesDoNotLeadOut) {
  m_temp.Write("secret.json", "{}");
  ASSERT_EQ(::symlink(m_temp.Path("secret.json").c_str(),
                      m_temp.Path("configs/app/default/link.json").c_str()),
            0);
  Json("/configs/app/default/..%2f..%2f..%2fsecret", 400);
  Json("/configs/../app/default/n", 404);  // five segments
  Json("/configs/%2e%2e/default/n", 400);
  Json("/configs/app/default/link", 500);
}

}  // namespace
