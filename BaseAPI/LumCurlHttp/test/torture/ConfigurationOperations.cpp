// LumApollo.

#include "HttpResult.h"
#include "Operation.h"

namespace lumtest {
namespace {

std::string Fetch(World& w, LumApolloEnv env) {
  const HttpResult result = w.Try([&] { return w.apollo.GetPropertyString(env); });
  if (result.code == -1 && result.body.rfind("POST failed for: ", 0) == 0) {
    return "-1 and the reason";
  }
  return std::to_string(result.code) + " " + result.body + " " + env.cluster;
}

}  // namespace

std::vector<Operation> ConfigurationOperations(Connection connection) {
  std::vector<Operation> all;
  if (connection == Connection::kCertificate) {
    return all;  // it has none to offer
  }
  if (connection == Connection::kTls) {
    all.push_back({"LumApollo::GetPropertyString",
                   [](World& w) { return Fetch(w, w.env); },
                   {Road::kAnswer, Road::kError, Road::kCut, Road::kRefused},
                   {{"-1 and the reason"}, {"-1  "}, {"-1  default"}}});
    return all;
  }
  all.push_back({"LumApollo::LumApollo", [](World& w) {
                   const auto made = w.Try([] { return std::make_unique<LumApollo>(); });
                   return std::string("made");
                 }});
  all.push_back({"LumApollo::GetPropertyString, URL too long",
                 [](World& w) {
                   LumApolloEnv env = w.env;
                   env.appId.assign(5000, 'x');
                   return Fetch(w, env);
                 },
                 {Road::kNone},
                 {{"-1  "}}});
  return all;
}

}  // namespace lumtest
