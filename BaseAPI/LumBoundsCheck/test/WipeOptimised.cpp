// Takes memset_s in as source text, so that the optimiser may inline it and judge its store.
#include "WipeOptimised.h"

#include "../src/LumBoundsCheck.cpp"

#ifndef __OPTIMIZE__
#error "this file shows nothing unless it is optimised"
#endif

namespace lumtest {

void HoldSecret() {
  unsigned char secret[kSecretSize];
  MakeSecret(secret);
}

void HoldSecretAndWipeIt() {
  unsigned char secret[kSecretSize];
  MakeSecret(secret);
  memset_s(secret, sizeof(secret), 0, sizeof(secret));
}

}  // namespace lumtest
