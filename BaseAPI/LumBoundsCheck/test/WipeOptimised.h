// Functions that keep a secret on their stack for a moment; built with optimisation in every build.
#ifndef LUM_TEST_WIPE_OPTIMISED_H
#define LUM_TEST_WIPE_OPTIMISED_H

#include <cstddef>

namespace lumtest {

constexpr std::size_t kSecretSize = 64;

// Fills `secret` with a pattern that stands nowhere else in memory.
void MakeSecret(unsigned char* secret);

// Both make a secret in a local buffer. The first leaves it there, the second wipes it with
// memset_s just before the buffer ends its life.
void HoldSecret();
void HoldSecretAndWipeIt();

}  // namespace lumtest

#endif  // LUM_TEST_WIPE_OPTIMISED_H
