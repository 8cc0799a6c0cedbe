// LumApollo: the facade over LumApolloPrivate.

#include "LumApollo.h"

#include "LumApolloPrivate.h"

LumApollo::LumApollo() : d_pointer(new LumApolloPrivate) {}

LumApollo::~LumApollo() {
  delete d_pointer;
}

HttpResult LumApollo::GetPropertyString(LumApolloEnv& env) {
  if (d_pointer == nullptr) {
    return HttpResult();
  }
  return d_pointer->GetPropertyString(env);
}
