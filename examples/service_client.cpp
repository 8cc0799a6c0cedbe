// A tour of LumCurlOrvOps: a token, reports, and the upload of logs to where the service says.
//
//   service_client URL LOG-DIRECTORY
//
// URL is a lumbackend's address. LOG-DIRECTORY is packed and uploaded; the archive stands beside it
// meanwhile. Where the object storage wants signatures, the environment holds them for the path
// /objects/logs/NAME.tar.gz: UPLOAD_DATE, UPLOAD_AUTHORISATION and, if any, UPLOAD_SECURITY_TOKEN.

#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <list>
#include <string>

namespace {

const char kAccessId[] = "demo";

// Fetches a token and renews it once. Empty when either fails.
std::string Token(LumCurlOrvOps& client, const std::string& url) {
  LumJson::Value request;
  request["accessId"] = kAccessId;
  const LumJson::Value first = client.GetToken(url + "/token", request);
  if (first["token"].AsString().empty()) {
    std::cerr << "no token\n";
    return std::string();
  }
  const LumJson::Value second =
      client.RefreshToken(url + "/token", request, first["token"].AsString());
  if (second["token"].AsString().empty()) {
    std::cerr << "the token was not renewed\n";
    return std::string();
  }
  std::cout << "token: valid for " << second["expiresIn"].AsInt64() << " seconds\n";
  return second["token"].AsString();
}

bool Report(LumCurlOrvOps& client, const std::string& url, const std::string& token) {
  LumJson::Value document;
  document["sensor"] = "t1";
  document["celsius"] = 21.5;
  if (client.ReportData(url + "/report", document, token, "climate") != 0 ||
      client.ReportDataWithGzip(url + "/report", document, token, kAccessId, "climate") != 0) {
    std::cerr << "report failed: " << client.GetLastErrorBody() << "\n";
    return false;
  }
  std::cout << "reports: one plain, one compressed\n";
  return true;
}

// What a report looks like that the service refuses.
bool ReportInVain(LumCurlOrvOps& client, const std::string& url) {
  LumJson::Value document;
  document["sensor"] = "t1";
  if (client.ReportData(url + "/report", document, "no such token", "climate") == 0) {
    std::cerr << "a report with a wrong token was taken\n";
    return false;
  }
  std::cout << "refused report: " << client.GetLastErrorBody() << "\n";
  return true;
}

// A request that the class has no operation for, with header lines of our own.
bool Echo(LumCurlOrvOps& client, const std::string& url, const std::string& token) {
  const std::list<std::string> headers{"Accept: application/json", "X-Auth-Token: " + token};
  int status = 0;
  const LumJson::Value reply = client.Get(url + "/echo", headers, status);
  if (status != 200 || !reply.IsObject()) {
    std::cerr << "GET failed, status " << status << "\n";
    return false;
  }
  std::cout << "GET: the server saw " << reply["headers"].Size() << " header lines\n";
  return true;
}

// An upload writes the server's reply to standard output. While one of these lives, that goes to
// standard error; so does what other threads print.
class ReplyAside {
 public:
  ReplyAside() {
    std::cout.flush();
    std::fflush(stdout);
    m_output = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
  }
  ~ReplyAside() {
    std::fflush(stdout);
    dup2(m_output, STDOUT_FILENO);
    close(m_output);
  }
  ReplyAside(const ReplyAside&) = delete;
  ReplyAside& operator=(const ReplyAside&) = delete;

 private:
  int m_output;
};

std::string FromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

// Of the three compress-and-upload operations this is the one that says when the upload failed; it
// then keeps the archive.
bool UploadLogs(LumCurlOrvOps& client, const std::string& url, const std::string& token,
                const std::string& directory) {
  const std::string archiveName = directory.substr(directory.rfind('/') + 1) + ".tar.gz";
  const LumJson::Value address =
      client.GetLogAddress(url + "/log-address", kAccessId, token, archiveName);
  if (address["url"].AsString().empty()) {
    std::cerr << "the service names no address for the upload\n";
    return false;
  }
  // With a date and an authorisation the upload is signed, without one of them it is not.
  client.SetUploadLogDate(FromEnvironment("UPLOAD_DATE"));
  client.SetUploadLogAuthorisation(FromEnvironment("UPLOAD_AUTHORISATION"));
  client.SetSecurityToken(FromEnvironment("UPLOAD_SECURITY_TOKEN"));

  int result = 0;
  {
    const ReplyAside aside;
    result = client.UploadLogDirPathForCompress(address["url"].AsString(), directory);
  }
  if (result != 0) {
    std::cerr << "upload failed\n";
    std::remove((directory + ".tar.gz").c_str());
    return false;
  }
  std::cout << "upload: " << archiveName << "\n";
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: service_client URL LOG-DIRECTORY\n";
    return 2;
  }
  const std::string url = argv[1];
  const std::string directory = argv[2];

  // At the start of the process, before it has threads. The initialisation of libcurl is the
  // process's own: the one that a LumCurlOrvOps takes ends with that object.
  std::signal(SIGPIPE, SIG_IGN);
  if (LumCurlHttp::CurlGlobalInit() != 0) {
    std::cerr << "libcurl cannot be initialised\n";
    return 1;
  }

  LumCurlOrvOps client;
  client.CurlGlobalInit();
  const std::string token = Token(client, url);
  const bool done = !token.empty() && Report(client, url, token) && ReportInVain(client, url) &&
                    Echo(client, url, token) && UploadLogs(client, url, token, directory);
  return done ? 0 : 1;
}
