// The inside of a gate, shared between WireReply.cpp and the connection that waits at it.

#ifndef LUM_TESTING_WIRE_WIREGATE_H
#define LUM_TESTING_WIRE_WIREGATE_H

#include <condition_variable>
#include <mutex>

#include "wire/WireReply.h"

namespace lumtest {

// A descriptor rather than a condition variable opens the gate, so that a connection can wait for
// the gate, its client and the server's end in one poll.
struct WireGate::State {
  State();
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void Reach();

  int opened;  // an eventfd; readable once released
  std::mutex mutex;
  std::condition_variable changed;
  bool reached = false;
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIREGATE_H
