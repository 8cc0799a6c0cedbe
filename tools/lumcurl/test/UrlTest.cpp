#include "Url.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "Failure.h"

namespace {

class ProxyTest : public testing::Test {
 protected:
  ProxyTest() {
    for (const char* variable : kVariables) {
      unsetenv(variable);
    }
  }

  // The variable that names the proxy for a URL; "" for none.
  static std::string VariableFor(const std::string& url) {
    const auto proxy = ProxyFor(url);
    return proxy ? proxy->variable : "";
  }

  static constexpr const char* kVariables[] = {"http_proxy",  "HTTP_PROXY", "https_proxy",
                                               "HTTPS_PROXY", "all_proxy",  "ALL_PROXY",
                                               "no_proxy",    "NO_PROXY"};
};

TEST_F(ProxyTest, IsNoneUnlessAVariableNamesIt) {
  EXPECT_EQ(VariableFor("http://h/"), "");
  setenv("http_proxy", "", 1);
  EXPECT_EQ(VariableFor("http://h/"), "");
  setenv("http_proxy", "p:1", 1);
  EXPECT_EQ(VariableFor("http://h/"), "http_proxy");
  EXPECT_EQ(ProxyFor("http://h/")->address, "p:1");
  EXPECT_EQ(VariableFor("https://h/"), "");
}

TEST_F(ProxyTest, GoesByTheSchemeAndThenByTheOneForAll) {
  setenv("ALL_PROXY", "a", 1);
  EXPECT_EQ(VariableFor("https://h/"), "ALL_PROXY");
  setenv("all_proxy", "a", 1);
  EXPECT_EQ(VariableFor("http://h/"), "all_proxy");
  setenv("HTTPS_PROXY", "a", 1);
  EXPECT_EQ(VariableFor("https://h/"), "HTTPS_PROXY");
  setenv("https_proxy", "a", 1);
  EXPECT_EQ(VariableFor("https://h/"), "https_proxy");
  setenv("HTTP_PROXY", "a", 1);  // libcurl does not read it
  EXPECT_EQ(VariableFor("http://h/"), "all_proxy");
}

TEST_F(ProxyTest, LeavesOutWhatNoProxyNames) {
  setenv("all_proxy", "a", 1);
  for (const char* list : {"*", "x, h.example", "example", ".EXAMPLE,x"}) {
    setenv("NO_PROXY", list, 1);
    EXPECT_EQ(VariableFor("https://u:p@H.example:8443/p"), "") << list;
  }
  for (const char* list : {"", "ample", "g.h.example", "x"}) {
    setenv("NO_PROXY", list, 1);
    EXPECT_EQ(VariableFor("http://h.example/"), "all_proxy") << list;
  }
}

TEST_F(ProxyTest, KnowsNetworksAndAddresses) {
  setenv("all_proxy", "a", 1);
  for (const char* list : {"127.0.0.0/8", "127.0.0.1", "0.0.0.0/0", "127.0.0.1/32"}) {
    setenv("no_proxy", list, 1);
    EXPECT_EQ(VariableFor("http://127.0.0.1:80/"), "") << list;
  }
  for (const char* list : {"126.0.0.0/8", "0.0.1", "127.0.0.2/32", "h/8"}) {
    setenv("no_proxy", list, 1);
    EXPECT_EQ(VariableFor("http://127.0.0.1:80/"), "all_proxy") << list;
  }
  setenv("no_proxy", "::1", 1);
  EXPECT_EQ(VariableFor("http://[::1]:80/"), "");
}

TEST(RequestPath, IsWhatLibcurlSends) {
  EXPECT_EQ(RequestPath("http://h/objects/a.zip"), "/objects/a.zip");
  EXPECT_EQ(RequestPath("http://h:8080/a%20b/%C3%A9?query=1#fragment"), "/a%20b/%C3%A9");
  EXPECT_EQ(RequestPath("http://h/a/./b/../c"), "/a/c");
  EXPECT_EQ(RequestPath("http://h"), "/");
  EXPECT_EQ(RequestPath("https://u:p@[::1]:1/x/"), "/x/");
}

TEST(RequestPath, RefusesWhatIsNoUrl) {
  EXPECT_THROW(RequestPath("http://"), Failure);
}

}  // namespace
