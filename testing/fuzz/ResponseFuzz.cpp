// What the clients make of a reply: any status, any outcome of the transfer, a body in pieces of
// any size with any bytes.
//
// Input: operation, status (2 bytes), outcome, flags, then the error text, then the body's pieces,
// each behind its length.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>

#include <string>

#include "Fuzz.h"
#include "recording/Recorder.h"
#include "support/Files.h"

using lumtest::FuzzInput;
using lumtest::Recorder;

namespace {

constexpr char kUrl[] = "https://127.0.0.1/a";
constexpr unsigned kTls = 1;    // with a client certificate
constexpr unsigned kLarge = 2;  // each piece a hundred times over

// The reply that the double plays.
struct Reply {
  lumtest::Script script;
  std::string body;
  bool arrived = false;  // the transfer did not fail
};

std::string FailureText(const char* prefix, const Reply& reply) {
  return prefix + reply.script.errorText + " .";
}

// What a client returns that parses a body: the document, or null.
LumJson::Value Document(const std::string& body) {
  LumJson::Value document;
  document.Parse(body);
  return document;
}

bool IsJson(const std::string& body) {
  LumJson::Value document;
  return document.Parse(body);
}

void UseCertificate(LumCurlHttp& client) {
  unsigned char phrase[] = "pass phrase";
  client.SetSslInfo("/ca.pem", "/client.pem", "/client.key", phrase, sizeof phrase);
}

void GeneralRequest(const Reply& reply, bool post, bool tls) {
  LumCurlHttp client;
  if (tls) {
    UseCertificate(client);
  }
  int code = 12345;
  const LumJson::Value answer =
      post ? client.Post(kUrl, "{}", tls, code) : client.Get(kUrl, "", tls, code);
  const bool good = reply.arrived && IsJson(reply.body);
  LUM_REQUIRE(code == (good ? static_cast<int>(reply.script.status) : -1));
  LUM_REQUIRE(answer == (good ? Document(reply.body) : LumJson::Value()));
}

void Download(const Reply& reply) {
  static const lumtest::TempDir directory;
  const std::string path = directory.Path("download");
  LumCurlHttp client;
  LUM_REQUIRE(client.DownloadFile(kUrl, path) == (reply.arrived ? 0 : -10000));
  LUM_REQUIRE(lumtest::ReadFile(path) == reply.body);
}

// The requests of the service client that answer with a document.
void ServiceRequest(LumCurlOrvOps& client, const Reply& reply, unsigned operation) {
  const int status = static_cast<int>(reply.script.status);
  int code = status;
  LumJson::Value answer;
  switch (operation) {
    case 0:
      answer = client.Get(kUrl, {"A: 1"}, code);
      break;
    case 1:
      answer = client.Post(kUrl, "{}", {}, code);
      break;
    case 2:
      answer = client.GetToken(kUrl, LumJson::Value::Object());
      break;
    case 3:
      answer = client.RefreshToken(kUrl, LumJson::Value::Object(), "token");
      break;
    default:
      answer = client.GetLogAddress(kUrl, "id", "token", "name");
      break;
  }
  LUM_REQUIRE(code == status);
  // A failure's text takes the body's place.
  const std::string prefix = operation == 3                     ? "PUT failed for: "
                             : operation == 1 || operation == 2 ? "POST failed for: "
                                                                : "GET failed for: ";
  const std::string body = reply.arrived ? reply.body : FailureText(prefix.c_str(), reply);
  LUM_REQUIRE(answer == (status == 200 ? Document(body) : LumJson::Value()));
  LUM_REQUIRE(client.GetLastErrorBody().empty());
}

void ServiceReport(LumCurlOrvOps& client, const Reply& reply, bool gzip) {
  LumJson::Value document;
  document["text"] = "long enough to be worth a compression";
  const int result = gzip ? client.ReportDataWithGzip(kUrl, document, "token", "id")
                          : client.ReportData(kUrl, document, "token", "topic");
  const bool accepted = reply.script.status == 200 || reply.script.status == 204;
  LUM_REQUIRE(result == (accepted ? 0 : -10000));
  const std::string failure = reply.arrived ? reply.body : FailureText("POST failed for: ", reply);
  LUM_REQUIRE(client.GetLastErrorBody() == (accepted ? std::string() : failure));
}

void Configuration(const Reply& reply) {
  LumApollo client;
  LumApolloEnv place{"127.0.0.1", "app", "", "application"};
  const HttpResult result = client.GetPropertyString(place);
  LUM_REQUIRE(result.code == (reply.arrived ? static_cast<int>(reply.script.status) : -1));
  LUM_REQUIRE(result.body ==
              (reply.arrived ? reply.body : FailureText("POST failed for: ", reply)));
  LUM_REQUIRE(place.cluster == "default");
  Recorder::Get().FreeLists();  // the list of every request is kept
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  const unsigned operation = input.Byte() % 12;
  Reply reply;
  reply.script.status = input.Number();
  reply.script.result = static_cast<CURLcode>(input.Byte() % CURL_LAST);
  reply.arrived = reply.script.result == CURLE_OK;
  const unsigned flags = input.Byte();
  // libcurl writes a C string of fewer than CURL_ERROR_SIZE bytes; DownloadFile offers no buffer.
  std::string errorText = input.Text();
  if (!reply.arrived && operation != 2) {
    reply.script.errorText = errorText.substr(0, errorText.find('\0'));
  }
  while (!input.AtEnd()) {
    std::string piece = input.Text();
    if ((flags & kLarge) != 0) {
      const std::string once = piece;
      for (int i = 1; i < 100; ++i) {
        piece += once;
      }
    }
    reply.body += piece;
    reply.script.chunks.push_back(std::move(piece));
  }

  Recorder& recorder = Recorder::Get();
  recorder.Reset();
  recorder.NextPerform(reply.script);
  const bool tls = (flags & kTls) != 0;
  if (operation < 2) {
    GeneralRequest(reply, operation == 1, tls);
  } else if (operation == 2) {
    Download(reply);
  } else if (operation == 3) {
    Configuration(reply);
  } else {
    LumCurlOrvOps client;
    if (tls) {
      unsigned char phrase[] = "pass phrase";
      client.SetSslInfo("/ca.pem", "/client.pem", "/client.key", phrase, sizeof phrase);
    }
    if (operation < 9) {
      ServiceRequest(client, reply, operation - 4);
    } else if (operation < 11) {
      ServiceReport(client, reply, operation == 10);
    } else {
      const int result = client.UploadLog(kUrl, "/dev/null");
      LUM_REQUIRE(result == (reply.script.status == 200 ? 0 : -10000));
    }
  }
  LUM_REQUIRE(recorder.Transfers().size() == 1);
  LUM_REQUIRE(recorder.LiveHandles() == 0 && recorder.LiveLists() == 0 &&
              recorder.LiveFiles() == 0);
  return 0;
}
