// Signal masks for the length of a scope.

#ifndef LUM_TESTING_SUPPORT_SIGNALS_H
#define LUM_TESTING_SUPPORT_SIGNALS_H

#include <pthread.h>

#include <csignal>
#include <ctime>

namespace lumtest {

// Blocks every signal on this thread; threads started meanwhile have them blocked for good.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t m_before;
};

// Writing to a closed pipe or connection gives EPIPE on this thread and no signal.
class PipeSignalBlocked {
 public:
  PipeSignalBlocked() {
    sigemptyset(&m_pipe);
    sigaddset(&m_pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
  }
  ~PipeSignalBlocked() {
    const timespec atOnce = {0, 0};
    while (sigtimedwait(&m_pipe, nullptr, &atOnce) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
  }
  PipeSignalBlocked(const PipeSignalBlocked&) = delete;
  PipeSignalBlocked& operator=(const PipeSignalBlocked&) = delete;

 private:
  sigset_t m_pipe;
  sigset_t m_before;
};

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_SIGNALS_H
