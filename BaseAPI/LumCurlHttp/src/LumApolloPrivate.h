// LumApolloPrivate: the request behind LumApollo.

#ifndef LUM_APOLLO_PRIVATE_H
#define LUM_APOLLO_PRIVATE_H

#include "HttpResult.h"
#include "LumApollo.h"

// Holds no state: calls may run in parallel.
class LumApolloPrivate {
 public:
  HttpResult GetPropertyString(LumApolloEnv& env);
};

#endif  // LUM_APOLLO_PRIVATE_H
