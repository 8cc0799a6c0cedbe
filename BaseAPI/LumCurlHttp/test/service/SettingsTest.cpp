// The client object: its life, its settings with what each logs, and the last error.

#include <climits>
#include <ostream>
#include <system_error>

#include "ServiceTest.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SettingsTest : public ServiceTest {};

// --- Life ---

TEST_F(SettingsTest, ConstructionLeavesLibcurlAloneAndDestructionCleansItUp) {
  {
    LumCurlOrvOps other;
    ExpectEvents({"memset_s 2048 0 2048"});
    recorder.Reset();
  }
  ExpectEvents({"curl_global_cleanup"});
}

TEST_F(SettingsTest, NewEngineHoldsItsInitialValues) {
  const LumCurlOrvOpsPrivate& engine = Engine();
  EXPECT_FALSE(engine.curlGlobalInited);
  for (const std::string* text :
       {&engine.caInfoPath, &engine.sslCertPath, &engine.sslKeyPath, &engine.uploadLogDate,
        &engine.uploadLogAuthorisation, &engine.domainIp, &engine.bindIp, &engine.bindMac,
        &engine.bindInterface, &engine.securityToken}) {
    EXPECT_EQ(*text, "");
  }
  EXPECT_THAT(engine.keyPassword, ::testing::Each(0));
  EXPECT_FALSE(engine.sslInfoSet);
  EXPECT_EQ(engine.limitSpeed, 0xFFFFFFFF);
  EXPECT_EQ(engine.connectTimeout, 4);
  EXPECT_EQ(engine.requestTimeout, 4);
  EXPECT_EQ(engine.uploadFp, nullptr);
}

TEST_F(SettingsTest, DestructionTakesThePrivatePointerAway) {
  alignas(LumCurlOrvOps) unsigned char place[sizeof(LumCurlOrvOps)];
  auto* other = new (place) LumCurlOrvOps;
  ASSERT_NE(other->d_pointer, nullptr);
  bool cleared = false;
  // The pointer is looked at while the object still lives, by way of libcurl's clean-up.
  recorder.onGlobalCleanup = [&cleared, other] { cleared = other->d_pointer == nullptr; };

  other->~LumCurlOrvOps();
  recorder.onGlobalCleanup = nullptr;

  EXPECT_TRUE(cleared);
}

TEST_F(SettingsTest, GlobalInitRunsOnceForEachObject) {
  LumCurlOrvOps other;
  Forget();

  client.CurlGlobalInit();
  client.CurlGlobalInit();
  client.CurlGlobalInit();
  ExpectEvents({"curl_global_init 3"});
  EXPECT_TRUE(Engine().curlGlobalInited);

  other.CurlGlobalInit();
  other.CurlGlobalInit();
  ExpectEvents({"curl_global_init 3", "curl_global_init 3"});
}

TEST_F(SettingsTest, GlobalInitDoesNotLookAtItsResult) {
  recorder.globalInit = CURLE_FAILED_INIT;

  client.CurlGlobalInit();
  client.CurlGlobalInit();

  ExpectEvents({"curl_global_init 3"});
  EXPECT_TRUE(Engine().curlGlobalInited);
}

// --- String settings ---

struct Setting {
  const char* name;  // of the operation
  void (LumCurlOrvOps::*set)(const std::string&);
  std::string LumCurlOrvOpsPrivate::*field;
  const char* message;  // of the log line, before the value; null: none
  bool logsValue;
};

void PrintTo(const Setting& setting, std::ostream* out) {
  *out << setting.name;
}

const Setting kDate = {"SetUploadLogDate", &LumCurlOrvOps::SetUploadLogDate,
                       &LumCurlOrvOpsPrivate::uploadLogDate, "Set Date to ", true};
const Setting kAuthorisation = {"SetUploadLogAuthorisation",
                                &LumCurlOrvOps::SetUploadLogAuthorisation,
                                &LumCurlOrvOpsPrivate::uploadLogAuthorisation, "Set Auth", false};
const Setting kSwiftIp = {"SetSwiftIp", &LumCurlOrvOps::SetSwiftIp, &LumCurlOrvOpsPrivate::domainIp,
                          "set swift Ip=", true};
const Setting kDomainIp = {"SetDomainIp", &LumCurlOrvOps::SetDomainIp,
                           &LumCurlOrvOpsPrivate::domainIp, "set domain Ip=", true};
const Setting kBindIp = {"SetBindIp", &LumCurlOrvOps::SetBindIp, &LumCurlOrvOpsPrivate::bindIp,
                         "set bind Ip=", true};
const Setting kBindInterface = {"SetBindInterface", &LumCurlOrvOps::SetBindInterface,
                                &LumCurlOrvOpsPrivate::bindInterface, "set bind interface=", true};
const Setting kBindMac = {"SetBindMac", &LumCurlOrvOps::SetBindMac, &LumCurlOrvOpsPrivate::bindMac,
                          "set bind mac=", true};
const Setting kSecurityToken = {"SetSecurityToken", &LumCurlOrvOps::SetSecurityToken,
                                &LumCurlOrvOpsPrivate::securityToken, nullptr, false};

class StringSetting : public ServiceTest, public ::testing::WithParamInterface<Setting> {
 protected:
  void Set(const std::string& value) { (client.*GetParam().set)(value); }
  std::string Stored() { return Engine().*GetParam().field; }
  Events LogOf(const std::string& value) const {
    if (GetParam().message == nullptr) {
      return {};
    }
    const std::string shown = GetParam().logsValue ? value.c_str() : "";
    return {Log(3, GetParam().name, GetParam().message + shown)};
  }
};

std::string NameOf(const ::testing::TestParamInfo<Setting>& instance) {
  return instance.param.name;
}

TEST_P(StringSetting, StoresItsValueAndLogsItsLine) {
  Set("value");

  EXPECT_EQ(Stored(), "value");
  ExpectEvents(LogOf("value"));
}

TEST_P(StringSetting, LogsBeforeItStores) {
  Set("old");
  Forget();
  std::vector<std::string> storedWhenLogged;
  recorder.onLog = [&](const LogLine&) { storedWhenLogged.push_back(Stored()); };

  Set("new");

  EXPECT_EQ(storedWhenLogged, std::vector<std::string>(LogOf("new").size(), "old"));
  EXPECT_EQ(Stored(), "new");
}

TEST_P(StringSetting, WritesNoOtherSetting) {
  const std::vector<Setting> fields = {kDate,          kAuthorisation, kDomainIp,     kBindIp,
                                       kBindInterface, kBindMac,       kSecurityToken};
  for (const Setting& field : fields) {
    Engine().*field.field = "before";
  }

  Set("value");

  for (const Setting& field : fields) {
    const bool isSet = field.field == GetParam().field;
    EXPECT_EQ(Engine().*field.field, isSet ? "value" : "before") << field.name;
  }
}

TEST_P(StringSetting, TakesAnyBytes) {
  const std::string value = std::string("a\0b\r\n%s", 7) + std::string(100000, 'x');
  Set(value);

  EXPECT_EQ(Stored(), value);
}

INSTANTIATE_TEST_SUITE_P(All, StringSetting,
                         ::testing::Values(kDate, kAuthorisation, kSwiftIp, kDomainIp, kBindIp,
                                           kBindInterface, kBindMac, kSecurityToken),
                         NameOf);

class UnguardedSetting : public StringSetting {};

TEST_P(UnguardedSetting, TakesAnEmptyValueAndTheSameAgain) {
  Set("value");
  Set("value");
  Set("");
  Set("");

  EXPECT_EQ(Stored(), "");
  ExpectLogs(LogOf("value") + LogOf("value") + LogOf("") + LogOf(""));
}

INSTANTIATE_TEST_SUITE_P(All, UnguardedSetting,
                         ::testing::Values(kDate, kSwiftIp, kDomainIp, kSecurityToken), NameOf);

class ChangeGuardedSetting : public StringSetting {};

TEST_P(ChangeGuardedSetting, LogsAChangeOnly) {
  Set("");
  EXPECT_THAT(Logs(), IsEmpty()) << "two empty values are equal";

  Set("value");
  Set("value");
  ExpectLogs(LogOf("value"));

  Set("valuf");
  Set("valu");
  Set(std::string("valu\0", 5));
  EXPECT_EQ(Logs().size(), 4U);
  EXPECT_EQ(Stored(), std::string("valu\0", 5));

  Set("");
  EXPECT_EQ(Logs().back(), LogOf("").back());
  EXPECT_EQ(Stored(), "");
}

INSTANTIATE_TEST_SUITE_P(All, ChangeGuardedSetting,
                         ::testing::Values(kBindIp, kBindInterface, kBindMac), NameOf);

TEST_F(SettingsTest, EmptyAuthorisationKeepsTheEarlierOneWithoutALogLine) {
  client.SetUploadLogAuthorisation("");
  EXPECT_EQ(Engine().uploadLogAuthorisation, "");
  client.SetUploadLogAuthorisation("AWS key:signature");
  Forget();

  client.SetUploadLogAuthorisation("");

  EXPECT_EQ(Engine().uploadLogAuthorisation, "AWS key:signature");
  ExpectEvents({});
}

TEST_F(SettingsTest, SwiftAndDomainAddressAreOneSetting) {
  client.SetSwiftIp("10.0.0.1");
  client.SetDomainIp("10.0.0.2");
  EXPECT_EQ(Engine().domainIp, "10.0.0.2");
  client.SetSwiftIp("10.0.0.3");
  EXPECT_EQ(Engine().domainIp, "10.0.0.3");
}

// --- Speed and stream ---

TEST_F(SettingsTest, SpeedIsStoredAsThirtyTwoBitsWithoutALogLine) {
  const std::pair<int, std::uint32_t> kSpeeds[] = {
      {0, 0},           {1, 1},          {INT_MAX, 0x7FFFFFFF}, {INT_MIN, 0x80000000},
      {-2, 0xFFFFFFFE}, {-1, 0xFFFFFFFF}};
  for (const auto& [given, stored] : kSpeeds) {
    client.SetLimitSpeed(given);
    EXPECT_EQ(Engine().limitSpeed, stored) << given;
  }
  ExpectEvents({});
}

TEST_F(SettingsTest, StreamIsStoredWithoutALogLine) {
  client.SetFp(stderr);
  EXPECT_EQ(Engine().uploadFp, stderr);
  client.SetFp(nullptr);
  EXPECT_EQ(Engine().uploadFp, nullptr);
  ExpectEvents({});
}

TEST_F(SettingsTest, WithoutAPrivateObjectTheGuardedSettersDoNothing) {
  const WithoutPrivate<LumCurlOrvOps> without(client);
  unsigned char passPhrase[] = "p";

  client.CurlGlobalInit();
  client.SetSslInfo("a", "b", "c", passPhrase, 1);
  client.SetSslInfo("a", "b", "c", nullptr, 0);
  client.SetSslInfo("a", "b", "c", passPhrase, -1);
  client.SetLimitSpeed(1);
  client.SetFp(stderr);

  ExpectEvents({});
}

// --- The last error ---

TEST_F(SettingsTest, LastErrorIsEmptyAtFirst) {
  EXPECT_EQ(client.GetLastErrorBody(), "");
  ExpectEvents({});
}

TEST_F(SettingsTest, LastErrorIsTheCallersCopy) {
  client.UpdateLastError("one");
  const std::string copy = client.GetLastErrorBody();
  client.UpdateLastError(std::string("two\0", 4));

  EXPECT_EQ(copy, "one");
  EXPECT_EQ(client.GetLastErrorBody(), std::string("two\0", 4));
  client.UpdateLastError("");
  EXPECT_EQ(client.GetLastErrorBody(), "");
  ExpectEvents({});
}

TEST_F(SettingsTest, LastErrorNeedsNoPrivateObject) {
  const WithoutPrivate<LumCurlOrvOps> without(client);
  client.UpdateLastError("body");
  EXPECT_EQ(client.GetLastErrorBody(), "body");
}

TEST_F(SettingsTest, LastErrorIsLockedOnceForEachAccess) {
  recorder.WatchMutex(&client.lastErrorMutex);

  client.UpdateLastError("body");
  ExpectEvents({"lock", "unlock"});
  client.GetLastErrorBody();
  ExpectEvents({"lock", "unlock", "lock", "unlock"});
}

TEST_F(SettingsTest, LastErrorThatCannotBeLockedThrows) {
  client.UpdateLastError("before");
  recorder.WatchMutex(&client.lastErrorMutex, true);

  for (int i = 0; i < 2; ++i) {
    try {
      i == 0 ? client.UpdateLastError("after") : static_cast<void>(client.GetLastErrorBody());
      ADD_FAILURE() << "nothing was thrown";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::make_error_code(std::errc::invalid_argument));
    }
  }
  Forget();
  EXPECT_EQ(client.GetLastErrorBody(), "before");
}

}  // namespace
}  // namespace lumtest
