// Requests of the product beside those of other libraries, and what makes a request expensive.
//
//   LumBenchRequests DIRECTORY HTTP-PORT HTTPS-PORT ROUNDS SLICE-SECONDS
//
// The servers on 127.0.0.1 answer 200 with a JSON document of 300 bytes to everything. DIRECTORY
// holds ca.pem, which the HTTPS server's certificate is of, and client.pem with client.key.

#include <LumLogger.h>
#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "Operations.h"
#include "PeerRequests.h"

namespace {

using lumbench::Candidate;
using lumbench::ClientsOfThreads;
using lumbench::IsDocument;
using lumbench::Operation;
using lumbench::Plan;
using lumbench::Work;

constexpr char kPath[] = "/api/v1/vehicles/17/state";
constexpr char kBundle[] = "/etc/ssl/certs/ca-certificates.crt";

// Every operation over one scheme, beside libcurl with the same options and, where it is the
// service client's GET, beside the other libraries.
void MeasureOperations(ClientsOfThreads& clients, const Work& work, bool tls, int port,
                       const Plan& plan) {
  const std::string scheme = tls ? "https" : "http";
  const std::string authority = "127.0.0.1:" + std::to_string(port);
  const std::string url = scheme + "://" + authority + kPath;
  const lumbench::Target target = {tls, "127.0.0.1", port, kPath};
  const std::vector<Candidate> peers = {
      {"curlpp", [&](int) { return IsDocument(lumbench::CurlppGet(url, work.headers)); }},
      {"cpp-httplib", [&](int) { return IsDocument(lumbench::HttplibGet(target, work.headers)); }},
      {"Boost.Beast", [&](int) { return IsDocument(lumbench::BeastGet(target, work.headers)); }}};
  std::vector<Operation> operations = lumbench::Operations(clients, work, url);
  if (tls) {
    operations.push_back(lumbench::Fetch(clients, authority));
  }
  for (Operation& operation : operations) {
    if (operation.name == "service-Get") {
      operation.candidates.insert(operation.candidates.end(), peers.begin(), peers.end());
    }
    lumbench::Measure("requests", operation.name + " " + scheme, 300, plan, operation.candidates);
  }
}

// libcurl with one handle that is kept, and with it the connection.
class Reused {
 public:
  explicit Reused(const std::string& url) : m_handle(curl_easy_init()) {
    curl_easy_setopt(m_handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(m_handle, CURLOPT_WRITEFUNCTION, &lumbench::AppendToReply);
    curl_easy_setopt(m_handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(m_handle, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(m_handle, CURLOPT_SSL_VERIFYHOST, 0L);
  }
  ~Reused() { curl_easy_cleanup(m_handle); }
  Reused(const Reused&) = delete;
  Reused& operator=(const Reused&) = delete;

  bool Get() {
    lumbench::Reply reply;
    curl_easy_setopt(m_handle, CURLOPT_WRITEDATA, &reply);
    curl_easy_perform(m_handle);
    curl_easy_getinfo(m_handle, CURLINFO_RESPONSE_CODE, &reply.status);
    return reply.status == 200;
  }

 private:
  CURL* m_handle;
};

// What connecting, TLS, looking up localhost and reading a CA file add to a request.
void MeasureCosts(const std::string& directory, int httpPort, int httpsPort,
                  ClientsOfThreads& clients, const Work& work, const Plan& plan) {
  const auto urlOf = [](const char* scheme, const char* host, int port) {
    return std::string(scheme) + "://" + host + ":" + std::to_string(port) + kPath;
  };
  const auto serviceGet = [&](std::string url) {
    return [&clients, &work, url](int thread) {
      int status = 0;
      clients[thread].service.Get(url, work.headers, status);
      return status == 200;
    };
  };
  Reused http(urlOf("http", "127.0.0.1", httpPort));
  Reused https(urlOf("https", "127.0.0.1", httpsPort));

  // The public authorities' certificates with ours among them, and ours alone.
  const std::string many = directory + "/many.pem";
  const std::string one = directory + "/ca.pem";
  {
    std::ofstream out(many, std::ios::binary);
    for (const std::string& part : {std::string(kBundle), one}) {
      std::ifstream in(part, std::ios::binary);
      out << in.rdbuf();
    }
  }
  LumCurlHttp withMany;
  LumCurlHttp withOne;
  withMany.SetSslInfo(many, directory + "/client.pem", directory + "/client.key", nullptr, 0);
  withOne.SetSslInfo(one, directory + "/client.pem", directory + "/client.key", nullptr, 0);
  const std::string tlsUrl = urlOf("https", "127.0.0.1", httpsPort);
  const auto verifiedGet = [&](LumCurlHttp& client) {
    return [&client, tlsUrl](int) {
      int status = 0;
      client.Get(tlsUrl, "", true, status);
      return status == 200;
    };
  };
  lumbench::Measure("costs", "request", 300, plan,
                    {{"libcurl, connection kept", [&](int) { return http.Get(); }},
                     {"http", serviceGet(urlOf("http", "127.0.0.1", httpPort))},
                     {"http, host by name", serviceGet(urlOf("http", "localhost", httpPort))},
                     {"libcurl, TLS connection kept", [&](int) { return https.Get(); }},
                     {"https", serviceGet(tlsUrl)},
                     {"https, own certificate, 1 CA certificate", verifiedGet(withOne)},
                     {"https, own certificate, public CA bundle", verifiedGet(withMany)}});
}

// The service client's GET by more and more threads.
void MeasureThreads(ClientsOfThreads& clients, const Work& work, int port, int rounds,
                    double seconds) {
  const std::string url = "http://127.0.0.1:" + std::to_string(port) + kPath;
  const Candidate get = {"library", [&clients, &work, url](int thread) {
                           int status = 0;
                           clients[thread].service.Get(url, work.headers, status);
                           return status == 200;
                         }};
  for (const int threads : {1, 2, 4, 8, 16}) {
    lumbench::Measure("threads", "service-Get http", 300, {rounds, seconds, threads}, {get});
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr,
                 "usage: LumBenchRequests DIRECTORY HTTP-PORT HTTPS-PORT ROUNDS SLICE-SECONDS\n");
    return 2;
  }
  const std::string directory = argv[1];
  const int httpPort = std::atoi(argv[2]);
  const int httpsPort = std::atoi(argv[3]);
  const int rounds = std::atoi(argv[4]);
  const double seconds = std::atof(argv[5]);
  LumCurlHttp::CurlGlobalInit();
  LumLogger::GetInstance().SetLevel(LumLogger::kError);

  ClientsOfThreads clients;
  const Work work("http://127.0.0.1:" + std::to_string(httpPort) + kPath);
  for (const int threads : {1, 8}) {
    MeasureOperations(clients, work, false, httpPort, {rounds, seconds, threads});
    MeasureOperations(clients, work, true, httpsPort, {rounds, seconds, threads});
  }
  MeasureCosts(directory, httpPort, httpsPort, clients, work, {rounds, seconds, 1});
  MeasureThreads(clients, work, httpPort, rounds, seconds);
  return 0;
}
