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

TEST_F(ApolloTest, AJsonFileThatIsNoUtf8IsNamed) {
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

// --- The format of java.util.Properties.

class PropertiesTest : public ApolloTest {
 protected:
  static constexpr char kTarget[] = "/configs/app/default/n";

  void Write(const std::string& text) { m_temp.Write("configs/app/default/n.properties", text); }
};

TEST_F(PropertiesTest, AreReadAsJavaReadsThem) {
  const std::pair<const char*, const char*> kCases[] = {
      // Keys end at the first separator.
      {"a=1\nb:2\nc 3\nd\t=\t4\ne = : 5\nf\ng==6\nh  :7",
       R"({"a":"1","b":"2","c":"3","d":"4","e":": 5","f":"","g":"=6","h":"7"})"},
      // Only leading blanks are dropped.
      {" \t\f a = 1 \t\n", R"({"a":"1 \t"})"},
      // Comments and empty lines count for nothing.
      {"# one\n! two \\\n  \t\n\n   # three\na=1#2!3\n", R"({"a":"1#2!3"})"},
      {"", "{}"},
      {"#only", "{}"},
      // Every line end is known.
      {"a=1\rb=2\r\nc=3\nd=4", R"({"a":"1","b":"2","c":"3","d":"4"})"},
      // An odd number of backslashes continues a line.
      {"a=1,\\\n    2,\\\r\n\t3\nb=\\\n", R"({"a":"1,2,3","b":""})"},
      {"a=1\\\n# no comment\n", R"({"a":"1# no comment"})"},
      {"a=1\\\n\nb=2", R"({"a":"1","b":"2"})"},
      {"ke\\\n  y=v", R"({"key":"v"})"},
      {"a=1\\\\\nb=2\\\\\\\n3", R"({"a":"1\\","b":"2\\3"})"},
      {"a=1\\", R"({"a":"1"})"},
      // Escapes are undone in keys and values; UTF-8 is kept.
      {"a\\=b\\:c\\ d=\\t\\n\\r\\f\\\\\\q\\\"\\#", R"({"a=b:c d":"\t\n\r\f\\q\"#"})"},
      {"\\u0061=\\u00e9\\u20AC\\uD83D\\ude00\\u0000z",
       "{\"a\":\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\\u0000z\"}"},
      {"\xE4\xBD\xA0=\xE5\xA5\xBD", "{\"\xE4\xBD\xA0\":\"\xE5\xA5\xBD\"}"},
      // The last value of a key counts.
      {"a=1\nb=2\na=3", R"({"a":"3","b":"2"})"},
  };
  for (const auto& [text, json] : kCases) {
    Write(text);
    EXPECT_EQ(Json(kTarget)["configurations"].JsonValueToString(), json) << text;
  }
}

TEST_F(PropertiesTest, WhatCannotBeReadIsNamedByItsLine) {
  for (const char* value :
       {"\\u", "\\u12", "\\u12g4", "\\ud800", "\\udc00", "\\ud800\\u0041", "\\ud800x"}) {
    Write("# one\nok=\\\n 1\nbad=" + std::string(value));
    EXPECT_EQ(ErrorAt(kTarget, 500), "n.properties: line 4: malformed \\uXXXX") << value;
  }
  Write("a=1\nb=\xE9\n");
  EXPECT_EQ(ErrorAt(kTarget, 500), "n.properties: line 2: not UTF-8");
}

}  // namespace
