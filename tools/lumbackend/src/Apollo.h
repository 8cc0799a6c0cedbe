// The HTTP interface of an Apollo configuration centre.
#ifndef LUM_BACKEND_APOLLO_H
#define LUM_BACKEND_APOLLO_H

#include "Message.h"
#include "RootDir.h"

// Serves namespaces from files ROOT/configs/APPID/CLUSTER/NAMESPACE.properties and NAMESPACE.json,
// read anew for every request. Safe for several threads at once.
class Apollo {
 public:
  explicit Apollo(const RootDir& root);

  // GET /configs/APPID/CLUSTER/NAMESPACE: {"appId", "cluster", "namespaceName", "configurations",
  // "releaseKey"}. NAMESPACE is a file's name with or without its extension. A namespace that the
  // cluster does not have comes from the cluster "default", which "cluster" then says. A json
  // namespace is one property "content" with the text of the file. 304 when "releaseKey" in the
  // query is that of the answer, 404 when there is no such namespace.
  Reply Get(const Call& call) const;

 private:
  const RootDir m_directory;
};

#endif  // LUM_BACKEND_APOLLO_H
