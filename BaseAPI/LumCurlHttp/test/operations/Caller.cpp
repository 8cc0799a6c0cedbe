// What a caller has at the start.

#include "Caller.h"

namespace lumtest {

LumJson::Value Caller::UsualDocument() {
  LumJson::Value document;
  document.AddJsonValue("accessId", "an identifier");
  document.AddJsonValue("text", "a text that compresses");
  return document;
}

Caller::Caller(bool initialise) {
  if (initialise) {
    Initialise();
  }
  signedService.SetUploadLogDate("Sat, 21 Nov 2026 13:00:00 GMT");
  signedService.SetUploadLogAuthorisation("AWS key:signature");
  signedService.SetSecurityToken("security token");
}

void Caller::Initialise() {
  service.CurlGlobalInit();
  signedService.CurlGlobalInit();
}

void Caller::OfferCertificate(const std::string& ca, const std::string& certificate,
                              const std::string& key, std::string phrase) {
  auto* const bytes = reinterpret_cast<unsigned char*>(phrase.data());
  const int length = static_cast<int>(phrase.size());
  general.SetSslInfo(ca, certificate, key, bytes, length);
  service.SetSslInfo(ca, certificate, key, bytes, length);
  signedService.SetSslInfo(ca, certificate, key, bytes, length);
}

std::string Caller::MakeFiles(const std::string& name) const {
  if (!Exists(m_directory.Path(name))) {
    m_directory.MakeDir(name);
    m_directory.Write(name + "/a.log", content);
    m_directory.Write(name + "/b.log", content);
    m_directory.MakeDir(name + "/logs");
    m_directory.Write(name + "/logs/a.log", content);
  }
  return m_directory.Path(name);
}

}  // namespace lumtest
