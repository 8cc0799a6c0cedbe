// Against lumbackend, with what script/demo does not show.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "../../lumbackend/test/BackendProcess.h"
#include "Lumcurl.h"

namespace lumtest {
namespace {

class WithBackend : public testing::Test {
 protected:
  SecretDir m_directory;
  const std::string m_key = m_directory.Secret("key", "storage-key\n");
  BackendProcess m_backend{{"--port", "0", "--tls-port", "0", "--sign-key-file", m_key}};
};

TEST_F(WithBackend, ItsOwnFirstExampleWorks) {
  const std::string help = Lumcurl({"--help"}).out;
  std::smatch example;
  ASSERT_TRUE(std::regex_search(
      help, example, std::regex("\nExample:\n  lumcurl (\\S+) http://127.0.0.1:8080(/\\S*)\n")));
  const ProcessResult result = Lumcurl({example[1], m_backend.Url(example[2].str())});
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
}

// Both read the path of the URL, and sign it as it is sent.
TEST_F(WithBackend, UploadsSignedToAnEncodedPath) {
  const std::string file = m_directory.Write("a.log", "content of a\n");
  const std::string url = m_backend.Url("/objects/logs/a%20b.log");
  EXPECT_EQ(Lumcurl({"upload-log", "--sign-key-file", m_key, url, file}).exitStatus, 0);
  EXPECT_EQ(ReadFile(m_backend.Root().Path("objects/logs/a b.log")), "content of a\n");

  const std::string wrong = m_directory.Secret("wrong", "another-key");
  EXPECT_THAT(Lumcurl({"upload-log", "--sign-key-file", wrong, url, file}),
              Ends(4, HasSubstr("signature does not match"), HasSubstr("403")));
}

}  // namespace
}  // namespace lumtest
