// A latch: threads wait for each other without a sleep.

#ifndef LUM_TESTING_LATCH_H
#define LUM_TESTING_LATCH_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

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

  // True once it is open; false when somebody gives up, or half a minute passes first.
  bool Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_opened.wait_for(lock, std::chrono::seconds(30), [this] { return m_count <= 0 || m_givenUp; });
    return m_count <= 0;
  }

  // Whoever waits for the caller waits in vain.
  void GiveUp() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_givenUp = true;
    m_opened.notify_all();
  }

  bool CountDownAndWait() {
    CountDown();
    return Wait();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_opened;
  int m_count;
  bool m_givenUp = false;
};

// Runs both at once. When one ends before it has come to the latch, the other does not wait for it.
template <typename First, typename Second>
void RunBoth(Latch& latch, First first, Second second) {
  std::thread other([&] {
    second();
    latch.GiveUp();
  });
  first();
  latch.GiveUp();
  other.join();
}

}  // namespace lumtest

#endif  // LUM_TESTING_LATCH_H
