// Whole commands against lumbackend.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "../../lumbackend/test/BackendProcess.h"
#include "Lumcurl.h"

namespace lumtest {
namespace {

class WithBackend : public testing::Test {
 protected:
  std::string Root(const std::string& name) const { return m_backend.Root().Path(name); }

  // The member of the document that a command prints.
  std::string Printed(const Words& arguments, const std::string& member) {
    const ProcessResult result = Lumcurl(arguments);
    EXPECT_EQ(result.exitStatus, 0) << result.Describe();
    LumJson::Value document;
    EXPECT_TRUE(document.Parse(result.out)) << result.out;
    return document[member].JsonValueToString();
  }

  SecretDir m_directory;
  const std::string m_key = m_directory.Secret("key", "storage-key\n");
  const std::string m_login = m_directory.Secret("login", R"({"user":"u"})");
  BackendProcess m_backend{{"--port", "0", "--tls-port", "0", "--sign-key-file", m_key}};
  const std::string m_plain = m_backend.Url("");
  const std::string m_tls = "127.0.0.1:" + std::to_string(m_backend.TlsPort());
};

TEST_F(WithBackend, ItsOwnFirstExampleWorks) {
  const std::string help = Lumcurl({"--help"}).out;
  std::smatch example;
  ASSERT_TRUE(std::regex_search(
      help, example, std::regex("\nExample:\n  lumcurl (\\S+) http://127.0.0.1:8080(/\\S*)\n")));
  const ProcessResult result = Lumcurl({example[1], m_plain + example[2].str()});
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
}

TEST_F(WithBackend, ReportsWithATokenAndWithoutOne) {
  const std::string first = Printed({"token", "--data-file", m_login, m_plain + "/token"}, "token");
  const std::string token = m_directory.Secret(
      "token", Printed({"refresh-token", "--token-file", m_directory.Secret("first", first),
                        "--data-file", m_login, m_plain + "/token"},
                       "token"));
  EXPECT_EQ(Lumcurl({"report", "--token-file", token, "--topic", "t", "-d", R"({"n":1})",
                     m_plain + "/report"})
                .exitStatus,
            0);
  EXPECT_EQ(Lumcurl({"report", "--gzip", "--access-id", "r7", "--token-file", token, "-d",
                     R"({"n":2,"text":"long enough"})", "https://" + m_tls + "/report"})
                .exitStatus,
            0);
  const std::string reports = Root("reports");
  EXPECT_EQ(Lumcurl({"download", m_plain + "/reports", reports}).exitStatus, 0);
  EXPECT_EQ(ReadFile(reports),
            "{\"n\":1,\"topic_name\":\"t\"}\n{\"n\":2,\"text\":\"long enough\"}\n");
  EXPECT_THAT(Lumcurl({"report", "-d", "{}", m_plain + "/report"}),
              Ends(4, HasSubstr("check the token")));
}

TEST_F(WithBackend, UploadsSignedToTheAddressItIsTold) {
  const std::string token = m_directory.Secret(
      "token", Printed({"token", "--data-file", m_login, m_plain + "/token"}, "token"));
  const ProcessResult address = Lumcurl({"log-address", "--access-id", "r7", "--file-name", "a.log",
                                         "--token-file", token, m_plain + "/log-address"});
  EXPECT_EQ(address.exitStatus, 0) << address.Describe();
  EXPECT_THAT(address.out, HasSubstr("/objects/"));

  const std::string file = m_directory.Write("a.log", "content of a\n");
  const std::string url = m_plain + "/objects/logs/a%20b.log";
  const ProcessResult upload = Lumcurl({"upload-log", "--sign-key-file", m_key, url, file});
  EXPECT_EQ(upload.exitStatus, 0) << upload.Describe();
  EXPECT_EQ(ReadFile(Root("objects/logs/a b.log")), "content of a\n");

  const ProcessResult wrong = Lumcurl(
      {"upload-log", "--sign-key-file", m_directory.Secret("wrong", "another-key"), url, file});
  EXPECT_EQ(wrong.exitStatus, 4);
  EXPECT_THAT(wrong.out, HasSubstr("signature does not match"));
}

TEST_F(WithBackend, UploadsArchives) {
  const std::string directory = m_directory.MakeDir("logs");
  WriteFile(directory + "/a.log", "content of a\n");
  const std::string base = m_plain + "/objects/";
  EXPECT_EQ(Lumcurl({"upload-dir", "--sign-key-file", m_key, base + "d", directory}).exitStatus, 0);
  EXPECT_EQ(Lumcurl({"upload-file", "--sign-key-file", m_key, base + "f", directory + "/a.log"})
                .exitStatus,
            0);
  EXPECT_EQ(
      Lumcurl({"upload-group", "--sign-key-file", m_key, base + "g", directory + "/a.log", m_login})
          .exitStatus,
      0);
  EXPECT_EQ(RunCommand({"tar", "-xzOf", Root("objects/d"), "logs/a.log"}).out, "content of a\n");
  EXPECT_EQ(RunCommand({"tar", "-xzOf", Root("objects/f"), "a.log"}).out, "content of a\n");
  EXPECT_EQ(RunCommand({"tar", "-tzf", Root("objects/g")}).out, "a.log\nlogin\n");
}

TEST_F(WithBackend, DownloadsAndEchoes) {
  WriteFile(Root("files/map"), "a map");
  const std::string path = m_directory.Path("downloaded");
  EXPECT_EQ(Lumcurl({"download", m_plain + "/files/map", path}).exitStatus, 0);
  EXPECT_EQ(ReadFile(path), "a map");
  EXPECT_EQ(Printed({"post", "-d", "[7]", m_plain + "/echo"}, "body"), "[7]");
}

TEST_F(WithBackend, ReadsANamespace) {
  m_backend.Root().Write("configs/robot/default/application.properties", "db.url = a b\nn=2\n");
  const ProcessResult env = Lumcurl({"apollo", "-q", "--env-file", m_tls, "robot", "application"});
  EXPECT_EQ(env.out, "db_url='a b'\nn='2'\n");
  EXPECT_THAT(env.err, IsEmpty());
  EXPECT_EQ(Lumcurl({"apollo", "--cluster", "c", "--key", "n", m_tls, "robot", "application"}).out,
            "2\n");
  EXPECT_EQ(Lumcurl({"apollo", m_tls, "robot", "none"}).exitStatus, 4);
}

}  // namespace
}  // namespace lumtest
