// The public operations that send no request. Most return nothing: what they stored is read from
// the private part.

#include <memory>

#include "LumCurlHttpPrivate.h"
#include "LumCurlOrvOpsPrivate.h"
#include "Operations.h"

namespace lumtest {

namespace {

using Text = const std::string&;

Operation Setting(const char* name, const char* signature, std::string (*run)(Caller&, Text, Text),
                  void (*prepare)(Caller&) = nullptr) {
  return {name, signature, Kind::kSetting, 0, 0, run, prepare};
}

// A setter of LumCurlOrvOps that stores its one text.
template <void (LumCurlOrvOps::*kSet)(Text), std::string LumCurlOrvOpsPrivate::*kStored>
Operation TextSetting(const char* name, const char* signature) {
  return Setting(
      name, signature,
      [](Caller& c, Text, Text) {
        c.Try([&] { (c.service.*kSet)(c.text); });
        return c.service.d_pointer->*kStored;
      },
      [](Caller& c) { std::string().swap(c.service.d_pointer->*kStored); });
}

template <typename Client>
void SetSslInfo(Caller& c, Client& client) {
  c.Try([&] {
    client.SetSslInfo(c.text.c_str(), c.text.c_str(), c.text.c_str(), c.passPhrase,
                      sizeof c.passPhrase);
  });
}

std::vector<Operation> GeneralSettings() {
  return {
      Setting("General_Construct", "LumCurlHttp::LumCurlHttp()",
              [](Caller& c, Text, Text) {
                const auto made = c.Try([] { return std::make_unique<LumCurlHttp>(); });
                return made->d_pointer->m_userAgent;
              }),
      Setting("General_Initialise", "LumCurlHttp::CurlGlobalInit()",
              [](Caller& c, Text, Text) {
                const int result = c.Try([] { return LumCurlHttp::CurlGlobalInit(); });
                return std::string(result == 0 ? "0" : "an error");
              }),
      Setting(
          "General_SetHeaders", "LumCurlHttp::SetHeaders(string const&)",
          [](Caller& c, Text, Text) {
            c.Try([&] { c.general.SetHeaders(c.text); });
            return c.general.d_pointer->m_headers;
          },
          [](Caller& c) { std::string().swap(c.general.d_pointer->m_headers); }),
      Setting("General_SetSslInfo",
              "LumCurlHttp::SetSslInfo(string, string, string, unsigned char*, int)",
              [](Caller& c, Text, Text) {
                SetSslInfo(c, c.general);
                const LumCurlHttpPrivate& own = *c.general.d_pointer;
                return own.m_caCertPath + own.m_clientCertPath + own.m_clientKeyPath +
                       reinterpret_cast<const char*>(own.m_keyPassword);
              }),
  };
}

std::vector<Operation> ServiceSettings() {
  using Client = LumCurlOrvOps;
  using Engine = LumCurlOrvOpsPrivate;
  return {
      Setting("Service_Construct", "LumCurlOrvOps::LumCurlOrvOps()",
              [](Caller& c, Text, Text) {
                const auto made = c.Try([] { return std::make_unique<LumCurlOrvOps>(); });
                made->CurlGlobalInit();  // what its destructor takes back
                return std::to_string(made->d_pointer->connectTimeout);
              }),
      Setting("Service_Initialise", "LumCurlOrvOps::CurlGlobalInit()",
              [](Caller& c, Text, Text) {
                LumCurlOrvOps client;
                c.Try([&] { client.CurlGlobalInit(); });
                return std::to_string(client.d_pointer->curlGlobalInited);
              }),
      Setting("GetDomain", "LumCurlOrvOps::GetDomain(string const&)",
              [](Caller& c, Text, Text) {
                const std::string url = "https://a-host-of-more-than-fifteen.example:8443/path";
                return c.Try([&] { return LumCurlOrvOps::GetDomain(url); });
              }),
      Setting("Service_SetSslInfo",
              "LumCurlOrvOps::SetSslInfo(string, string, string, unsigned char*, int)",
              [](Caller& c, Text, Text) {
                SetSslInfo(c, c.service);
                const LumCurlOrvOpsPrivate& own = *c.service.d_pointer;
                return own.caInfoPath + own.sslCertPath + own.sslKeyPath +
                       reinterpret_cast<const char*>(own.keyPassword);
              }),
      Setting("SetLimitSpeed", "LumCurlOrvOps::SetLimitSpeed(int)",
              [](Caller& c, Text, Text) {
                c.Try([&] { c.service.SetLimitSpeed(7); });
                return std::to_string(c.service.d_pointer->limitSpeed);
              }),
      Setting("SetFp", "LumCurlOrvOps::SetFp(_IO_FILE*)",
              [](Caller& c, Text, Text) {
                c.Try([&] { c.service.SetFp(c.stream.get()); });
                return std::to_string(c.service.d_pointer->uploadFp == c.stream.get());
              }),
      Setting(
          "GetLastErrorBody", "LumCurlOrvOps::GetLastErrorBody()",
          [](Caller& c, Text, Text) { return c.Try([&] { return c.service.GetLastErrorBody(); }); },
          [](Caller& c) { c.service.UpdateLastError(c.text); }),
      Setting(
          "UpdateLastError", "LumCurlOrvOps::UpdateLastError(string const&)",
          [](Caller& c, Text, Text) {
            c.Try([&] { c.service.UpdateLastError(c.text); });
            return c.service.lastErrorBody;
          },
          [](Caller& c) { std::string().swap(c.service.lastErrorBody); }),
      TextSetting<&Client::SetUploadLogDate, &Engine::uploadLogDate>(
          "SetUploadLogDate", "LumCurlOrvOps::SetUploadLogDate(string const&)"),
      TextSetting<&Client::SetUploadLogAuthorisation, &Engine::uploadLogAuthorisation>(
          "SetUploadLogAuthorisation", "LumCurlOrvOps::SetUploadLogAuthorisation(string const&)"),
      TextSetting<&Client::SetSecurityToken, &Engine::securityToken>(
          "SetSecurityToken", "LumCurlOrvOps::SetSecurityToken(string const&)"),
      TextSetting<&Client::SetSwiftIp, &Engine::domainIp>(
          "SetSwiftIp", "LumCurlOrvOps::SetSwiftIp(string const&)"),
      TextSetting<&Client::SetDomainIp, &Engine::domainIp>(
          "SetDomainIp", "LumCurlOrvOps::SetDomainIp(string const&)"),
      TextSetting<&Client::SetBindInterface, &Engine::bindInterface>(
          "SetBindInterface", "LumCurlOrvOps::SetBindInterface(string const&)"),
      TextSetting<&Client::SetBindMac, &Engine::bindMac>(
          "SetBindMac", "LumCurlOrvOps::SetBindMac(string const&)"),
      TextSetting<&Client::SetBindIp, &Engine::bindIp>("SetBindIp",
                                                       "LumCurlOrvOps::SetBindIp(string const&)"),
  };
}

std::vector<Operation> MakeSettings() {
  std::vector<Operation> all = GeneralSettings();
  for (const Operation& setting : ServiceSettings()) {
    all.push_back(setting);
  }
  all.push_back(Setting("Apollo_Construct", "LumApollo::LumApollo()", [](Caller& c, Text, Text) {
    const auto made = c.Try([] { return std::make_unique<LumApollo>(); });
    return std::string("made");
  }));
  return all;
}

}  // namespace

const std::vector<Operation>& Settings() {
  static const std::vector<Operation> settings = MakeSettings();
  return settings;
}

}  // namespace lumtest
