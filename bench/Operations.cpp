// The operations and their requests over libcurl alone.

#include "Operations.h"

#include <HttpResult.h>

#include <cstdio>
#include <cstdlib>

namespace lumbench {

Work::Work(const std::string& url) : text(BareGet(url.c_str()).body) {
  if (!document.Parse(text)) {
    std::fprintf(stderr, "bench: no document from %s\n", url.c_str());
    std::exit(1);
  }
}

bool IsDocument(const Reply& reply) {
  LumJson::Value document;
  return reply.status == 200 && document.Parse(reply.body);
}

std::vector<Operation> Operations(ClientsOfThreads& clients, const Work& work,
                                  const std::string& url) {
  const Candidate get = {"library", [&clients, url](int thread) {
                           int status = 0;
                           clients[thread].general.Get(url, "", false, status);
                           return status == 200;
                         }};
  const Candidate post = {"library", [&clients, &work, url](int thread) {
                            int status = 0;
                            clients[thread].general.Post(url, work.text, false, status);
                            return status == 200;
                          }};
  const Candidate serviceGet = {"library", [&clients, &work, url](int thread) {
                                  int status = 0;
                                  clients[thread].service.Get(url, work.headers, status);
                                  return status == 200;
                                }};
  const Candidate servicePost = {"library", [&clients, &work, url](int thread) {
                                   int status = 0;
                                   clients[thread].service.Post(url, work.text, work.headers,
                                                                status);
                                   return status == 200;
                                 }};
  const Candidate servicePut = {"library", [&clients, &work, url](int thread) {
                                  LumJson::Value answer = clients[thread].service.RefreshToken(
                                      url, work.document, work.token);
                                  return answer["state"].JsonValueToString() == "driving";
                                }};
  const auto bare = [](const std::function<Reply()>& send) {
    return Candidate{"libcurl", [send](int) { return IsDocument(send()); }};
  };
  return {{"Get", {get, bare([url] { return BareGet(url.c_str()); })}},
          {"Post", {post, bare([&work, url] { return BarePost(url.c_str(), work.text); })}},
          {"service-Get",
           {serviceGet, bare([&work, url] { return BareServiceGet(url.c_str(), work.lines); })}},
          {"service-Post", {servicePost, bare([&work, url] {
                              return BareServicePost(url.c_str(), work.text.data(),
                                                     work.text.size(), work.lines);
                            })}},
          {"service-Put",
           {servicePut, bare([&work, url] {
              const LumJson::Value document = work.document;  // by value, as the operation takes it
              return BareServicePut(url.c_str(), document.ToStyledString(), work.lines);
            })}}};
}

Operation Fetch(ClientsOfThreads& clients, const std::string& authority) {
  for (Clients& each : clients) {
    each.env = {authority, "vehicles", "default", "application"};
  }
  const std::string url = "https://" + authority + "/configs/vehicles/default/application";
  return {"fetch",
          {{"library",
            [&clients](int thread) {
              return clients[thread].apollo.GetPropertyString(clients[thread].env).code == 200;
            }},
           {"libcurl", [url](int) { return BareFetch(url.c_str()).status == 200; }}}};
}

}  // namespace lumbench
