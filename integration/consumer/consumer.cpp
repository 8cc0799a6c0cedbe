// What a user of the library writes first: every public class and the log, linked and run.

#include <HttpResult.h>
#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <LumLogger.h>

#include <cstdio>
#include <list>
#include <string>

// Usage: consumer URL-OF-A-JSON-ECHO
int main(int argc, char** argv) {
  if (argc != 2 || LumCurlHttp::CurlGlobalInit() != 0) {
    return 2;
  }
  const std::string url = argv[1];
  LumLogger::GetInstance().Log(__FILE__, __LINE__, __func__, "consumer", "", LumLogger::kInfo, "%s",
                               url.c_str());

  int status = 0;
  LumCurlHttp http;
  const LumJson::Value echoed = http.Post(url, "{\"from\":\"consumer\"}", false, status);
  std::printf("general client: %d, %zu bytes\n", status, echoed.ToStyledString().size());
  if (status != 200) {
    return 1;
  }

  LumCurlOrvOps service;
  service.Get(url, std::list<std::string>(1, "Accept: application/json"), status);
  std::printf("service client: %d, host %s\n", status, LumCurlOrvOps::GetDomain(url + "/").c_str());
  if (status != 200) {
    return 1;
  }

  LumApollo apollo;
  LumApolloEnv env;
  env.configServer = "127.0.0.1:1";  // nobody listens there
  const HttpResult result = apollo.GetPropertyString(env);
  std::printf("configuration client: %d, cluster %s\n", result.code, env.cluster.c_str());
  return result.code == -1 && env.cluster == "default" ? 0 : 1;
}
