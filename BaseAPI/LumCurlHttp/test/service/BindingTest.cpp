// Which host an upload pins, which interface a request leaves from, and what a MAC address is
// turned into.

#include <ostream>

#include "ServiceTest.h"

namespace lumtest {
namespace {

using ::testing::IsEmpty;

// --- The host of a URL ---

struct Host {
  std::string url;
  std::string host;
};

void PrintTo(const Host& host, std::ostream* out) {
  *out << host.url.substr(0, 60);
}

class HostTest : public ServiceTest, public ::testing::WithParamInterface<Host> {};

TEST_P(HostTest, IsTheTextBehindTheSchemeUpToTheNextSlash) {
  EXPECT_EQ(LumCurlOrvOps::GetDomain(GetParam().url), GetParam().host);
  EXPECT_EQ(LumCurlOrvOpsPrivate::GetDomain(GetParam().url), GetParam().host);
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

const std::string kLongHost(10000, 'a');

INSTANTIATE_TEST_SUITE_P(
    Https, HostTest,
    ::testing::Values(
        Host{"https://h", "h"}, Host{"https://h/", "h"}, Host{"https://h/p", "h"},
        Host{"https://h/p?q=1#f", "h"}, Host{"https://", ""}, Host{"https:///p", ""},
        Host{"https://h//p", "h"}, Host{"https://h:8443/p", "h:8443"}, Host{"https://h:/p", "h:"},
        Host{"https://user@h/p", "user@h"}, Host{"https://user:pw@h:1/p", "user:pw@h:1"},
        Host{"https://[::1]:8443/p", "[::1]:8443"},
        Host{"https://[fe80::1%25eth0]", "[fe80::1%25eth0]"}, Host{"https://h?q=a/b", "h?q=a"},
        Host{"https://h#f/g", "h#f"}, Host{"https://h\\p", "h\\p"},
        Host{"https://a.b.c.example./x", "a.b.c.example."}, Host{"https://%2F/x", "%2F"},
        Host{"https://\xC3\xBCn\xC3\xAF/x", "\xC3\xBCn\xC3\xAF"},
        Host{"https://h\r\nX: y/z", "h\r\nX: y"}, Host{"https:// h /z", " h "},
        Host{"https://h/p?u=http://x/y", "h"}, Host{"https://" + kLongHost, kLongHost},
        Host{"https://" + kLongHost + "/p", kLongHost},
        Host{std::string("https://a\0b/c", 13), std::string("a\0b", 3)}));

INSTANTIATE_TEST_SUITE_P(
    Http, HostTest,
    ::testing::Values(Host{"http://h/", "h"}, Host{"http://host/p", "host"},
                      Host{"http://h:8080/p", "h:8080"}, Host{"http://user:pw@h/p", "user:pw@h"},
                      Host{"http://[::1]/p", "[::1]"}, Host{"http://127.0.0.1:80/", "127.0.0.1:80"},
                      Host{"http:///p", ""}, Host{"http:///", ""},
                      Host{"http://host?q/r", "host?q"}, Host{"http://h/p?u=x", "h"}));

// The length is that of an https URL's rest: one less than what stands behind "http://".
INSTANTIATE_TEST_SUITE_P(HttpWithoutAPathLosesItsLastCharacter, HostTest,
                         ::testing::Values(Host{"http://host", "hos"}, Host{"http://h", ""},
                                           Host{"http://", ""}, Host{"http://h:8080", "h:808"},
                                           Host{"http://h:", "h"}, Host{"http://[::1]", "[::1"},
                                           Host{"http://h?q", "h?"},
                                           Host{"http://" + kLongHost, std::string(9999, 'a')}));

// The scheme counts wherever it stands, and "https://" before "http://"; the text is taken from the
// scheme's length on all the same.
INSTANTIATE_TEST_SUITE_P(
    SchemeInTheMiddle, HostTest,
    ::testing::Values(Host{"ftp://h/?u=https://x/y", "?u=https:"}, Host{"xhttps://h/p", ""},
                      Host{"xhttp://h/p", ""}, Host{" https://h", ""}, Host{"  https://h", ""},
                      Host{"http://https://h/p", "ttps:"}, Host{"https://http://h", "http:"},
                      Host{"http://h/p?u=https://x", ""}, Host{"http://host/p?u=https://x", "ost"},
                      Host{"abchttp://", ":"}, Host{"xhttp://", ""},
                      Host{"abcdefghttp://z", "http:"}, Host{"abcdefghttps://z", "ttps:"}));

class RefusedUrlTest : public ServiceTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(RefusedUrlTest, GivesNoHostAndIsLogged) {
  EXPECT_EQ(LumCurlOrvOps::GetDomain(GetParam()), "");
  ExpectEvents({Log(1, "GetDomain", "invalid url:" + GetParam())});
}

INSTANTIATE_TEST_SUITE_P(Urls, RefusedUrlTest,
                         ::testing::Values("", "h", "h/p", "//h/p", "ftp://h/p", "HTTPS://h/",
                                           "Http://h/", "https:/h", "https//h", "http:h", "ttp://h",
                                           "http:\\\\h", "file:///etc/passwd", "%s%s%n"));

// --- Pinning ---

struct Pin {
  const char* url;
  const char* ip;
  const char* entry;
};

void PrintTo(const Pin& pin, std::ostream* out) {
  *out << pin.url << " at " << pin.ip;
}

class PinTest : public ServiceTest, public ::testing::WithParamInterface<Pin> {};

TEST_P(PinTest, SetsOneEntryOfHostPortAndAddress) {
  Engine().domainIp = GetParam().ip;
  CURL* handle = curl_easy_init();
  keptLists = 1;

  Engine().SetDomainIp(GetParam().url, handle);

  const std::string entry = GetParam().entry;
  ExpectEvents({"curl_easy_init", Log(3, "SetDomainIp", "Set domain=" + entry),
                "curl_slist_append " + entry, "CURLOPT_RESOLVE [" + entry + "]"});
  curl_easy_cleanup(handle);
}

INSTANTIATE_TEST_SUITE_P(
    Entries, PinTest,
    ::testing::Values(Pin{"https://h/p", "10.0.0.5", "h:443:10.0.0.5"},
                      Pin{"https://h", "10.0.0.5", "h:443:10.0.0.5"},
                      Pin{"http://h/p", "10.0.0.5", "h:80:10.0.0.5"},
                      Pin{"http://h:8080/p", "10.0.0.5", "h:8080:10.0.0.5"},
                      Pin{"https://h:8443/p", "10.0.0.5", "h:8443:10.0.0.5"},
                      Pin{"http://host", "10.0.0.5", "hos:80:10.0.0.5"},
                      Pin{"http://host:8080", "10.0.0.5", "host:808:10.0.0.5"},
                      Pin{"https://h/p", "::1", "h:443:::1"},
                      Pin{"https://h/p", "[::1]", "h:443:[::1]"},
                      Pin{"https://[::1]/p", "10.0.0.5", "[::1]:10.0.0.5"},
                      Pin{"https://h/?u=http://x", "10.0.0.5", "h:80:443:10.0.0.5"},
                      Pin{"http://host/?u=https://x", "10.0.0.5", "ost:80:443:10.0.0.5"},
                      Pin{"https://h/?u=ttp://x", "10.0.0.5", "h:443:10.0.0.5"},
                      Pin{"http://h/?u=ttps://x", "10.0.0.5", "h:80:10.0.0.5"},
                      Pin{"https://user:pw@h/p", "10.0.0.5", "user:pw@h:10.0.0.5"},
                      Pin{"https://", "10.0.0.5", ":443:10.0.0.5"},
                      Pin{"https://h/", "not an ip", "h:443:not an ip"}));

class BindingTest : public ServiceTest {};

TEST_F(BindingTest, RefusedUrlPinsAColonAndTheAddress) {
  Engine().domainIp = "10.0.0.5";
  CURL* handle = curl_easy_init();
  keptLists = 1;

  Engine().SetDomainIp("ftp://h/p", handle);

  ExpectEvents({"curl_easy_init", "log 1 GetDomain: invalid url:ftp://h/p",
                "log 3 SetDomainIp: Set domain=:10.0.0.5", "curl_slist_append :10.0.0.5",
                "CURLOPT_RESOLVE [:10.0.0.5]"});
  curl_easy_cleanup(handle);
}

TEST_F(BindingTest, NothingIsPinnedWithoutAnAddressOrAHandle) {
  CURL* handle = curl_easy_init();

  Engine().SetDomainIp("https://h/p", handle);
  ExpectEvents({"curl_easy_init"});

  Engine().domainIp = "10.0.0.5";
  Engine().SetDomainIp("https://h/p", nullptr);
  ExpectEvents({"curl_easy_init"});

  curl_easy_cleanup(handle);
}

// --- The interface ---

class InterfaceTest : public ServiceTest {
 protected:
  // One request: of the calls of those since the last look, `expected` are about the interface.
  void RequestAndExpect(const Events& expected) {
    Engine().Get("http://h/", {});
    EXPECT_TRUE(SameEvents(
        recorder.EventsWithout({"memset_s", "curl_", "CURLINFO", "CURLOPT_URL", "CURLOPT_POST",
                                "CURLOPT_WRITE", "CURLOPT_NOSIGNAL", "CURLOPT_ERRORBUFFER",
                                "CURLOPT_CONNECT", "CURLOPT_TIMEOUT", "CURLOPT_SSL"}),
        expected));
    Forget();
  }

  // What shows that a MAC address is looked up, and that `name` is found.
  static Events LookUp(const std::string& value, const std::string& name) {
    return {"GetInterfaceName " + value,
            Log(3, "UpdateInterfaceNameFromMac", "Update interface name=" + name)};
  }

  static Events Bound(const std::string& name) {
    return {Log(3, "SetInterface", "Set interface=" + name), "CURLOPT_INTERFACE " + name};
  }

  // From here on the next look-up finds `name`.
  void SetMac(const std::string& value, const std::string& name) {
    client.SetBindMac(value);
    Forget();
    recorder.interfaceNames = {name};
  }

  const std::string mac = "02:00:00:00:00:01";
  const std::string otherMac = "02:00:00:00:00:02";
};

TEST_F(InterfaceTest, NameGoesBeforeAMac) {
  client.SetBindInterface("eth1");
  SetMac(mac, "eth2");

  RequestAndExpect(Bound("eth1"));
}

TEST_F(InterfaceTest, MacIsLookedUpOnceAndItsNameStaysWhenTheMacChanges) {
  SetMac(mac, "eth2");
  RequestAndExpect(LookUp(mac, "eth2") + Bound("eth2"));
  EXPECT_EQ(Engine().bindInterface, "eth2");

  RequestAndExpect(Bound("eth2"));
  SetMac(otherMac, "eth3");
  RequestAndExpect(Bound("eth2"));
}

TEST_F(InterfaceTest, NewMacIsLookedUpOnceTheNameIsTakenBack) {
  SetMac(mac, "eth2");
  RequestAndExpect(LookUp(mac, "eth2") + Bound("eth2"));
  client.SetBindInterface("");
  SetMac(otherMac, "eth3");

  RequestAndExpect(LookUp(otherMac, "eth3") + Bound("eth3"));
}

TEST_F(InterfaceTest, MacOfNoInterfaceIsAskedForByEveryRequestUntilItIsFound) {
  SetMac(mac, "");

  for (int i = 0; i < 3; ++i) {
    RequestAndExpect(LookUp(mac, ""));
    EXPECT_EQ(Engine().bindInterface, "");
  }
  recorder.interfaceNames = {"eth2"};
  RequestAndExpect(LookUp(mac, "eth2") + Bound("eth2"));
}

TEST_F(InterfaceTest, LookUpReplacesTheNameEvenByNothing) {
  Engine().bindInterface = "old";
  Engine().bindMac = mac;

  Engine().UpdateInterfaceNameFromMac();

  EXPECT_EQ(Engine().bindInterface, "");
}

TEST_F(InterfaceTest, NoRequestReadsTheBindAddress) {
  client.SetBindIp("10.1.2.3");
  Forget();

  RequestAndExpect({});
}

// --- The address of a MAC ---

class BindIpTest : public ServiceTest {
 protected:
  BindIpTest() {
    Engine().bindMac = "02:00:00:00:00:01";
    recorder.localIpv4 = "10.0.0.1";
    recorder.localIpv6 = "fd00::1";
  }
};

TEST_F(BindIpTest, WithoutAMacDoesNothing) {
  Engine().bindMac = "";
  Engine().UpdateBindIpFromMac();
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

TEST_F(BindIpTest, FailedLookUpIsLoggedAndKeepsTheAddress) {
  for (const int failure : {-1, 1}) {
    recorder.localIp = failure;
    recorder.validIpv4 = {"10.0.0.1"};
    Engine().bindIp = "192.168.0.1";

    Engine().UpdateBindIpFromMac();

    EXPECT_EQ(Engine().bindIp, "192.168.0.1");
    ExpectEvents({"GetLocalIpAddress 02:00:00:00:00:01",
                  "log 1 UpdateBindIpFromMac: Fail to get local ip from 02:00:00:00:00:01"});
    Forget();
  }
}

TEST_F(BindIpTest, Ipv4GoesBeforeIpv6) {
  recorder.validIpv4 = {"10.0.0.1"};
  recorder.validIpv6 = {"fd00::1"};

  Engine().UpdateBindIpFromMac();

  EXPECT_EQ(Engine().bindIp, "10.0.0.1");
  ExpectEvents({"GetLocalIpAddress 02:00:00:00:00:01", "IsIPv4Address 10.0.0.1",
                "log 3 UpdateBindIpFromMac: update bindIP=10.0.0.1"});
}

TEST_F(BindIpTest, Ipv6ServesWhereIpv4IsNotValid) {
  recorder.validIpv6 = {"fd00::1"};

  Engine().UpdateBindIpFromMac();

  EXPECT_EQ(Engine().bindIp, "fd00::1");
  ExpectEvents({"GetLocalIpAddress 02:00:00:00:00:01", "IsIPv4Address 10.0.0.1",
                "IsIPv6Address fd00::1", "log 3 UpdateBindIpFromMac: update bindIP=fd00::1"});
}

TEST_F(BindIpTest, NeitherValidIsLoggedWhereNoAddressIsStored) {
  Engine().UpdateBindIpFromMac();

  EXPECT_EQ(Engine().bindIp, "");
  ExpectLogs(
      {"log 1 UpdateBindIpFromMac: not valid ip found ipv4:10.0.0.1, ipv6:fd00::1, "
       "mac:02:00:00:00:00:01"});
}

TEST_F(BindIpTest, NeitherValidKeepsAndLogsAnEarlierAddress) {
  Engine().bindIp = "192.168.0.1";

  Engine().UpdateBindIpFromMac();

  EXPECT_EQ(Engine().bindIp, "192.168.0.1");
  ExpectLogs({"log 3 UpdateBindIpFromMac: update bindIP=192.168.0.1"});
}

}  // namespace
}  // namespace lumtest
