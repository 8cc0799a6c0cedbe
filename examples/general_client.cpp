// A tour of LumCurlHttp: JSON requests, a header of our own, TLS with a client certificate, and a
// download.
//
//   general_client URL TLS-URL TLS-DIRECTORY FILE
//
// URL and TLS-URL are a lumbackend's addresses, TLS-DIRECTORY is its --tls-dir. FILE is written.

#include <LumCurlHttp.h>
#include <string.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <string>

namespace {

bool ReadDocument(LumCurlHttp& client, const std::string& url) {
  int status = 0;
  const LumJson::Value reply = client.Get(url + "/echo?lang=en", "", false, status);
  if (status != 200) {
    std::cerr << "GET failed, status " << status << "\n";
    return false;
  }
  std::cout << "GET: the server saw " << reply["method"].AsString() << " with the query "
            << reply["query"].AsString() << "\n";
  return true;
}

bool SendDocument(LumCurlHttp& client, const std::string& url) {
  LumJson::Value document;
  document["sensor"] = "t1";
  document["celsius"] = 21.5;

  int status = 0;
  const LumJson::Value reply =
      client.Post(url + "/echo", document.JsonValueToString(), false, status);
  if (status != 200 || reply["body"] != document) {
    std::cerr << "POST failed, status " << status << "\n";
    return false;
  }
  std::cout << "POST: the server read " << reply["body"].JsonValueToString() << "\n";
  return true;
}

// A header stays for the life of its object, in place of the default ones: so this has an object
// of its own.
bool ReadWithHeader(const std::string& url) {
  LumCurlHttp client;
  client.SetHeaders("X-Request-Id: 4711");

  int status = 0;
  const LumJson::Value reply = client.Get(url + "/echo", "", false, status);
  for (const LumJson::Value& header : reply["headers"].Elements()) {
    if (status == 200 && header["name"].AsString() == "X-Request-Id") {
      std::cout << "GET: the server saw X-Request-Id: " << header["value"].AsString() << "\n";
      return true;
    }
  }
  std::cerr << "GET with a header failed, status " << status << "\n";
  return false;
}

// The pass phrase serves one request, so each request with an encrypted key stores it again.
bool ReadOverTls(LumCurlHttp& client, const std::string& url, const std::string& directory) {
  std::ifstream file(directory + "/client-encrypted.pass");
  std::string passPhrase;
  if (!std::getline(file, passPhrase)) {
    std::cerr << "no pass phrase in " << directory << "\n";
    return false;
  }
  // One byte more than the text: the zero ends the phrase, whatever was stored before.
  client.SetSslInfo(
      directory + "/ca.pem", directory + "/client.pem", directory + "/client-encrypted.key",
      reinterpret_cast<unsigned char*>(&passPhrase[0]), static_cast<int>(passPhrase.size()) + 1);
  explicit_bzero(&passPhrase[0], passPhrase.size());

  int status = 0;
  const LumJson::Value reply = client.Get(url + "/echo", "", true, status);
  if (status != 200) {
    std::cerr << "GET over TLS failed, status " << status << "\n";
    return false;
  }
  std::cout << "GET over TLS: the server knows us as " << reply["clientCertificate"].AsString()
            << "\n";
  return true;
}

// DownloadFile returns 0 for an error page too, so what arrived is looked at.
bool Download(LumCurlHttp& client, const std::string& url, const std::string& path) {
  if (client.DownloadFile(url + "/files/notice.txt", path) != 0) {
    std::cerr << "download failed\n";
    return false;
  }
  std::ifstream file(path);
  std::string firstLine;
  if (!std::getline(file, firstLine) || firstLine != "Notice 1") {
    std::cerr << path << " is not the file that was asked for\n";
    return false;
  }
  std::cout << "download: " << path << " begins with '" << firstLine << "'\n";
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::cerr << "usage: general_client URL TLS-URL TLS-DIRECTORY FILE\n";
    return 2;
  }
  const std::string url = argv[1];
  const std::string tlsUrl = argv[2];
  const std::string tlsDirectory = argv[3];
  const std::string path = argv[4];

  // Both belong to the start of the process, before it has threads.
  std::signal(SIGPIPE, SIG_IGN);
  if (LumCurlHttp::CurlGlobalInit() != 0) {
    std::cerr << "libcurl cannot be initialised\n";
    return 1;
  }

  LumCurlHttp client;
  const bool done = ReadDocument(client, url) && SendDocument(client, url) && ReadWithHeader(url) &&
                    ReadOverTls(client, tlsUrl, tlsDirectory) && Download(client, url, path);
  return done ? 0 : 1;
}
