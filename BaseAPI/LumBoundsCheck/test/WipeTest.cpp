// memset_s wipes a buffer that nothing reads afterwards, in optimised code too.
//
// A thread runs on a stack that the test owns. When it has ended, the test looks for the secret in
// that stack.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "WipeOptimised.h"

namespace lumtest {

void MakeSecret(unsigned char* secret) {
  unsigned value = 0x5EC2E7;
  for (std::size_t i = 0; i < kSecretSize; ++i) {
    value = value * 1664525 + 1013904223;
    secret[i] = static_cast<unsigned char>(value >> 24);
  }
}

}  // namespace lumtest

namespace {

using lumtest::kSecretSize;

// Calls the function far down the stack, where the thread's own end does not reach.
void* RunFunction(void* function) {
  volatile char distance[65536];
  distance[0] = 1;
  (*static_cast<void (**)()>(function))();
  distance[sizeof(distance) - 1] = distance[0];
  return nullptr;
}

bool StackHoldsSecretAfter(void (*function)()) {
  constexpr std::size_t kStackSize = std::size_t{1} << 20;
  constexpr std::size_t kPage = 4096;
  std::vector<unsigned char> memory(kStackSize + kPage);
  auto* stack = memory.data() + (kPage - reinterpret_cast<std::uintptr_t>(memory.data()) % kPage);

  pthread_attr_t attributes;
  EXPECT_EQ(0, pthread_attr_init(&attributes));
  EXPECT_EQ(0, pthread_attr_setstack(&attributes, stack, kStackSize));
  pthread_t thread;
  EXPECT_EQ(0, pthread_create(&thread, &attributes, RunFunction, &function));
  EXPECT_EQ(0, pthread_join(thread, nullptr));
  EXPECT_EQ(0, pthread_attr_destroy(&attributes));

  unsigned char secret[kSecretSize];
  lumtest::MakeSecret(secret);
  return std::search(stack, stack + kStackSize, secret, secret + kSecretSize) != stack + kStackSize;
}

TEST(WipeTest, ASecretThatIsNotWipedStaysOnTheStack) {
  EXPECT_TRUE(StackHoldsSecretAfter(lumtest::HoldSecret));
}

TEST(WipeTest, ASecretThatIsWipedIsGone) {
  EXPECT_FALSE(StackHoldsSecretAfter(lumtest::HoldSecretAndWipeIt));
}

}  // namespace
