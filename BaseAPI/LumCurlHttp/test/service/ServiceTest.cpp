// The fixture of the service client's unit tests.

#include "ServiceTest.h"

namespace lumtest {

namespace {

// The line as it is on its way to libcurl when the transfer starts: "Name;" stands for a value that
// is empty.
std::string Sent(const std::string& line) {
  const std::size_t colon = line.find(':');
  return colon != std::string::npos && line.substr(colon) == ": " ? line.substr(0, colon) + ";"
                                                                  : line;
}

Events Start() {
  return {"memset_s 4096 0 4096", "curl_easy_init"};
}

Events ListEvents(const Lines& lines) {
  Events events;
  std::string list;
  for (const std::string& line : lines) {
    events.push_back("curl_slist_append " + line);
    list += "[" + line + "]";
  }
  if (!lines.empty()) {
    events.push_back("CURLOPT_HTTPHEADER " + list);
  }
  return events;
}

Events Verification() {
  return {"CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0"};
}

Events Run() {
  return {"curl_easy_perform", "CURLINFO_RESPONSE_CODE"};
}

Events End(const Lines& lines) {
  std::string list;
  for (const std::string& line : lines) {
    list += "[" + Sent(line) + "]";
  }
  if (lines.empty()) {
    return {"curl_easy_cleanup"};
  }
  return {"curl_slist_free_all " + list, "curl_easy_cleanup"};
}

}  // namespace

const Added kNothing;

const Added kEverything = {
    {"log 3 SetDomainIp: Set domain=store.example:443:10.0.0.5",
     "curl_slist_append store.example:443:10.0.0.5",
     "CURLOPT_RESOLVE [store.example:443:10.0.0.5]"},
    {"CURLOPT_MAX_SEND_SPEED_LARGE 1000"},
    {"log 3 SetInterface: Set interface=eth1", "CURLOPT_INTERFACE eth1"},
    {"CURLOPT_CAINFO /ca.pem", "CURLOPT_SSLCERT /client.pem", "CURLOPT_SSLKEY /client.key",
     "CURLOPT_SSLKEYTYPE PEM", "CURLOPT_SSLCERTTYPE PEM", "CURLOPT_KEYPASSWD secret"}};

void ServiceTest::UseCertificate(const std::string& passPhrase) {
  std::string bytes = passPhrase;
  client.SetSslInfo("/ca.pem", "/client.pem", "/client.key",
                    reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  Forget();
}

void ServiceTest::UseEverything() {
  UseCertificate();
  client.SetBindInterface("eth1");
  client.SetDomainIp("10.0.0.5");
  client.SetLimitSpeed(1000);
  Forget();
}

Events GetEvents(const std::string& url, const Lines& lines, const Added& added) {
  return Start() + ListEvents(lines) + Events{"CURLOPT_URL " + url,
                                              "CURLOPT_POST 0",
                                              "CURLOPT_WRITEFUNCTION function",
                                              "CURLOPT_WRITEDATA pointer",
                                              "CURLOPT_NOSIGNAL 1",
                                              "CURLOPT_ERRORBUFFER 4096 zero bytes",
                                              "CURLOPT_CONNECTTIMEOUT 4",
                                              "CURLOPT_TIMEOUT 4"} +
         added.interface + Verification() + added.certificate + Run() + End(lines);
}

Events PutEvents(const std::string& url, std::size_t length, const Lines& lines,
                 const Added& added) {
  return Start() + ListEvents(lines) +
         Events{"CURLOPT_URL " + url,
                "CURLOPT_CUSTOMREQUEST PUT",
                "CURLOPT_POSTFIELDS pointer",
                "CURLOPT_POSTFIELDSIZE " + std::to_string(length),
                "CURLOPT_WRITEFUNCTION function",
                "CURLOPT_WRITEDATA pointer",
                "CURLOPT_ERRORBUFFER 4096 zero bytes",
                "CURLOPT_CONNECTTIMEOUT 4",
                "CURLOPT_TIMEOUT 4"} +
         Verification() + added.certificate + added.interface + Run() + End(lines);
}

Events PostEvents(const std::string& url, std::size_t length, const Lines& lines,
                  const std::string& timeout, const Added& added) {
  return Start() + ListEvents(lines) +
         Events{"CURLOPT_URL " + url,
                "CURLOPT_POST 1",
                "CURLOPT_POSTFIELDS pointer",
                "CURLOPT_POSTFIELDSIZE " + std::to_string(length),
                "CURLOPT_WRITEFUNCTION function",
                "CURLOPT_WRITEDATA pointer",
                "CURLOPT_NOSIGNAL 1",
                "CURLOPT_ERRORBUFFER 4096 zero bytes",
                "CURLOPT_CONNECTTIMEOUT 4",
                "CURLOPT_TIMEOUT " + timeout} +
         added.interface + Verification() + added.certificate + Run() + End(lines);
}

Events UploadEvents(const std::string& url, const std::string& path, std::size_t size,
                    const Lines& lines, const std::string& timeout, const Added& added) {
  return Start() + added.pin +
         Events{"LumRealPath " + path + " " + std::to_string(path.size()), "fopen " + path + " rb",
                "fseek 0 from the end", "ftell", "fseek 0 from the start"} +
         ListEvents(lines) +
         Events{"CURLOPT_READFUNCTION function",
                "CURLOPT_UPLOAD 1",
                "CURLOPT_URL " + url,
                "CURLOPT_UPLOAD 1",
                "CURLOPT_READDATA pointer",
                "CURLOPT_INFILESIZE_LARGE " + std::to_string(size),
                "CURLOPT_ERRORBUFFER 4096 zero bytes",
                "CURLOPT_CONNECTTIMEOUT 10",
                "CURLOPT_TIMEOUT " + timeout} +
         added.cap + added.interface + Verification() + added.certificate + Run() +
         Events{"fclose"} + End(lines);
}

Events Failing(Events events, const std::string& log) {
  events.insert(events.end() - 1, log);
  return events;
}

}  // namespace lumtest
