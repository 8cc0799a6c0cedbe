// Runs a part of a test on several threads.

#ifndef LUM_TESTING_SUPPORT_THREADS_H
#define LUM_TESTING_SUPPORT_THREADS_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace lumtest {

// Runs work(0) to work(count - 1), each on a thread of its own, which all begin at once, to their
// ends.
inline void OnThreads(int count, const std::function<void(int)>& work) {
  std::mutex mutex;
  std::condition_variable all;
  int ready = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      {
        std::unique_lock<std::mutex> lock(mutex);
        ++ready;
        all.notify_all();
        all.wait(lock, [&] { return ready == count; });
      }
      work(i);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_THREADS_H
