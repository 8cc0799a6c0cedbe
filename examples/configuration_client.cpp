// A tour of LumApollo: one namespace of properties from a configuration centre.
//
//   configuration_client SERVER APP-ID NAMESPACE [CLUSTER]
//
// SERVER is a host, with ":port" where it is not 443.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumJson.h>

#include <csignal>
#include <iostream>
#include <string>

namespace {

bool PrintProperties(LumApolloEnv& query) {
  LumApollo client;
  const HttpResult result = client.GetPropertyString(query);
  if (result.code == -1) {
    std::cerr << "no answer: "
              << (result.body.empty() ? "the request could not be set up" : result.body) << "\n";
    return false;
  }
  LumJson::Value answer;
  if (result.code != 200 || !answer.Parse(result.body)) {
    std::cerr << "status " << result.code << ": " << result.body << "\n";
    return false;
  }

  // The record says which cluster was asked for, the answer which one had the namespace.
  std::cout << "cluster " << query.cluster << " asked, " << answer["cluster"].AsString()
            << " answered\n";
  for (const LumJson::Member& property : answer["configurations"].Members()) {
    std::cout << property.Name() << "=" << property.Item().AsString() << "\n";
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    std::cerr << "usage: configuration_client SERVER APP-ID NAMESPACE [CLUSTER]\n";
    return 2;
  }
  LumApolloEnv query;
  query.configServer = argv[1];
  query.appId = argv[2];
  query.namespaceName = argv[3];
  query.cluster = argc == 5 ? argv[4] : "";  // empty: "default"

  // Both belong to the start of the process. LumApollo does not initialise libcurl.
  std::signal(SIGPIPE, SIG_IGN);
  if (LumCurlHttp::CurlGlobalInit() != 0) {
    std::cerr << "libcurl cannot be initialised\n";
    return 1;
  }
  return PrintProperties(query) ? 0 : 1;
}
