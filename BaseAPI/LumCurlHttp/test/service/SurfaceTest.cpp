// The shape of the two classes: fields in their order, and every overload with its exact types.

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "ServiceTest.h"

namespace lumtest {
namespace {

using Json = LumJson::Value;
using Text = std::string;
using Client = LumCurlOrvOps;

// --- Fields ---

static_assert(std::is_same<decltype(LumCurlOrvOpsPrivate::curlGlobalInited), bool>::value, "");
static_assert(std::is_same<decltype(LumCurlOrvOpsPrivate::keyPassword), unsigned char[2048]>::value,
              "");
static_assert(std::is_same<decltype(LumCurlOrvOpsPrivate::sslInfoSet), bool>::value, "");
static_assert(std::is_same<decltype(LumCurlOrvOpsPrivate::limitSpeed), std::uint32_t>::value, "");
static_assert(std::is_same<decltype(LumCurlOrvOpsPrivate::connectTimeout), std::int32_t>::value,
              "");
static_assert(std::is_same<decltype(LumCurlOrvOpsPrivate::requestTimeout), std::int32_t>::value,
              "");
static_assert(std::is_same<decltype(LumCurlOrvOpsPrivate::uploadFp), FILE*>::value, "");
static_assert(std::is_same<decltype(Client::d_pointer), LumCurlOrvOpsPrivate*>::value, "");
static_assert(std::is_same<decltype(Client::lastErrorMutex), std::mutex>::value, "");
static_assert(std::is_same<decltype(Client::lastErrorBody), Text>::value, "");

template <typename Object, typename Field>
std::ptrdiff_t Offset(const Object& object, const Field& field) {
  return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object);
}

class SurfaceTest : public ServiceTest {};

TEST_F(SurfaceTest, EngineDeclaresItsFieldsInOrder) {
  const LumCurlOrvOpsPrivate& e = Engine();
  const std::vector<std::ptrdiff_t> offsets = {
      Offset(e, e.curlGlobalInited), Offset(e, e.caInfoPath),
      Offset(e, e.sslCertPath),      Offset(e, e.sslKeyPath),
      Offset(e, e.uploadLogDate),    Offset(e, e.uploadLogAuthorisation),
      Offset(e, e.domainIp),         Offset(e, e.bindIp),
      Offset(e, e.bindMac),          Offset(e, e.bindInterface),
      Offset(e, e.securityToken),    Offset(e, e.keyPassword),
      Offset(e, e.sslInfoSet),       Offset(e, e.limitSpeed),
      Offset(e, e.connectTimeout),   Offset(e, e.requestTimeout),
      Offset(e, e.uploadFp)};
  for (std::size_t i = 1; i < offsets.size(); ++i) {
    EXPECT_LT(offsets[i - 1], offsets[i]) << "field " << i;
  }
  EXPECT_EQ(offsets.front(), 0);
  EXPECT_EQ(offsets.back() + sizeof(FILE*), sizeof(e)) << "there is a further field";
}

TEST_F(SurfaceTest, ClientHoldsItsThreeMembersInOrder) {
  EXPECT_EQ(Offset(client, client.d_pointer), 0);
  EXPECT_LT(Offset(client, client.d_pointer), Offset(client, client.lastErrorMutex));
  EXPECT_LT(Offset(client, client.lastErrorMutex), Offset(client, client.lastErrorBody));
  EXPECT_EQ(sizeof(client), sizeof(void*) + sizeof(std::mutex) + sizeof(Text));
}

// --- Operations ---

static_assert(!std::is_polymorphic<LumCurlOrvOpsPrivate>::value, "");
static_assert(std::is_nothrow_destructible<Client>::value, "");

// True for whatever can be converted to a `Type`; an overload of other types cannot.
template <typename Type>
constexpr bool Is(Type) {
  return true;
}

static_assert(Is<void (Client::*)()>(&Client::CurlGlobalInit), "");
static_assert(Is<Text (*)(const Text&)>(&Client::GetDomain), "it needs no object");

using TextSetter = void (Client::*)(const Text&);
static_assert(Is<TextSetter>(&Client::SetUploadLogDate), "");
static_assert(Is<TextSetter>(&Client::SetUploadLogAuthorisation), "");
static_assert(Is<TextSetter>(&Client::SetSwiftIp), "");
static_assert(Is<TextSetter>(&Client::SetDomainIp), "");
static_assert(Is<TextSetter>(&Client::SetBindIp), "");
static_assert(Is<TextSetter>(&Client::SetBindInterface), "");
static_assert(Is<TextSetter>(&Client::SetBindMac), "");
static_assert(Is<TextSetter>(&Client::SetSecurityToken), "");
static_assert(Is<void (Client::*)(Text, Text, Text, unsigned char*, int)>(&Client::SetSslInfo), "");
static_assert(Is<void (Client::*)(int)>(&Client::SetLimitSpeed), "");
static_assert(Is<void (Client::*)(FILE*)>(&Client::SetFp), "");
static_assert(Is<Text (Client::*)()>(&Client::GetLastErrorBody), "");
static_assert(Is<void (Client::*)(const Text&)>(&Client::UpdateLastError), "");

static_assert(Is<int (Client::*)(Text, Json, Text, Text)>(&Client::ReportData), "");
static_assert(Is<int (Client::*)(Text, Json, Text, unsigned int, Text)>(&Client::ReportData), "");
static_assert(Is<int (Client::*)(const Text&, const Json&, const Text&, const Text&)>(
                  &Client::ReportDataWithGzip),
              "");
static_assert(Is<int (Client::*)(const Text&, Json, const Text&)>(&Client::ReportDataWithGzip), "");
static_assert(Is<int (Client::*)(Text, Json, Text, unsigned int)>(&Client::ReportDataWithGzip), "");
static_assert(Is<int (Client::*)(const Text&, Json, const Text&, const Text&, Text)>(
                  &Client::ReportDataWithGzip),
              "");

static_assert(Is<Json (Client::*)(Text, Json)>(&Client::GetToken), "");
static_assert(Is<Json (Client::*)(Text, Json, Text)>(&Client::RefreshToken), "");
static_assert(Is<Json (Client::*)(const Text&, const Lines&, int&)>(&Client::Get), "");
static_assert(Is<Json (Client::*)(const Text&, const Text&, const Lines&, int&)>(&Client::Post),
              "");

static_assert(Is<Json (Client::*)(Text, Text, Text, Text)>(&Client::GetLogAddress), "");
static_assert(Is<int (Client::*)(Text, Text, unsigned int, const Lines&)>(&Client::UploadLog), "");
static_assert(Is<int (Client::*)(Text, Text, unsigned int)>(&Client::UploadLog), "");
static_assert(Is<int (Client::*)(Text, Text)>(&Client::UploadLog), "");
static_assert(Is<int (Client::*)(Text, Text, unsigned int)>(&Client::UploadVideoFile), "");
static_assert(Is<int (Client::*)(Text, Text, Text)>(&Client::UploadLogFileGorupForCompress), "");
static_assert(Is<int (Client::*)(Text, Text)>(&Client::UploadLogDirPathForCompress), "");
static_assert(Is<int (Client::*)(Text, Text)>(&Client::UploadLogFileForCompress), "");

// The engine, whose operations take their strings by constant reference.
using Engine = LumCurlOrvOpsPrivate;
static_assert(Is<void (Engine::*)(std::uint32_t)>(&Engine::SetLimitSpeed), "");
static_assert(Is<void (Engine::*)(FILE*)>(&Engine::SetFp), "");
static_assert(Is<HttpResult (Engine::*)(const Text&, const Lines&)>(&Engine::Get), "");
static_assert(Is<HttpResult (Engine::*)(const Text&, const Text&, const Lines&)>(&Engine::Put), "");
static_assert(Is<HttpResult (Engine::*)(const Text&, const char*, std::uint32_t, const Lines&)>(
                  &Engine::Post),
              "");
static_assert(Is<HttpResult (Engine::*)(const Text&, const Text&, const Lines&, std::uint32_t)>(
                  &Engine::Post),
              "");
static_assert(Is<HttpResult (Engine::*)(const Text&, const Text&, const Lines&, std::uint32_t)>(
                  &Engine::Upload),
              "");
static_assert(Is<Text (*)(const Text&)>(&Engine::GetDomain), "it needs no object");

}  // namespace
}  // namespace lumtest
