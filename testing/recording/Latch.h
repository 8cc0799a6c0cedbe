// A latch: threads wait for each other without a sleep.

#ifndef LUM_TESTING_LATCH_H
#define LUM_TESTING_LATCH_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace lumtest {

// Opens after `count` calls of CountDown and stays open. May be used from any thread.
class Latch {
 public:
  explicit Latch(int count = 1) : m_count(count) {}

  void CountDown() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (--m_count == 0) {
      m_opened.notify_all();
    }
  }

  // True once it is open; false when half a minute has passed first.
  bool Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_opened.wait_for(lock, std::chrono::seconds(30), [this] { return m_count <= 0; });
  }

  bool CountDownAndWait() {
    CountDown();
    return Wait();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_opened;
  int m_count;
};

}  // namespace lumtest

#endif  // LUM_TESTING_LATCH_H
