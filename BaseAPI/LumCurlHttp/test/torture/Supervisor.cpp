// One process a trial, watched.

#include "Supervisor.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>

namespace lumtest {
namespace {

using Clock = std::chrono::steady_clock;

Progress* SharedProgress() {
  void* const memory =
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  return new (memory) Progress;
}

struct Child {
  pid_t pid = 0;  // 0: none
  std::size_t trial = 0;
  unsigned long runs = 0;   // as of the last look
  Clock::time_point since;  // when they last grew
};

class Supervisor {
 public:
  Supervisor(const std::vector<Trial>& trials, std::size_t atOnce, FILE* report,
             std::chrono::seconds margin)
      : m_trials(trials), m_report(report), m_margin(margin), m_children(atOnce) {
    for (std::size_t i = 0; i < trials.size(); ++i) {
      m_progress.push_back(SharedProgress());
    }
    sigset_t childEnds;
    sigemptyset(&childEnds);
    sigaddset(&childEnds, SIGCHLD);
    sigprocmask(SIG_BLOCK, &childEnds, &m_before);
  }

  ~Supervisor() {
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
    for (Progress* progress : m_progress) {
      munmap(progress, sizeof *progress);
    }
  }

  std::vector<Result> Run() {
    std::size_t next = 0;
    while (true) {
      bool running = false;
      for (Child& child : m_children) {
        if (child.pid == 0 && next < m_trials.size()) {
          Start(child, next++);
        }
        running = running || child.pid != 0;
      }
      if (!running) {
        break;
      }
      WaitForASignal();
      for (Child& child : m_children) {
        Look(child);
      }
    }

    std::vector<Result> results;
    for (const Progress* progress : m_progress) {
      results.push_back(progress->result);
    }
    return results;
  }

 private:
  void Start(Child& child, std::size_t trial) {
    (void)std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
      throw std::runtime_error("cannot fork");
    }
    if (pid == 0) {
      sigprocmask(SIG_SETMASK, &m_before, nullptr);
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      _exit(RunTrial(trial));
    }
    child = {pid, trial, m_progress[trial]->runs, Clock::now()};
  }

  // In the child. 0 when the trial came to its end.
  int RunTrial(std::size_t trial) {
    FILE* const report = fdopen(dup(fileno(m_report)), "w");
    try {
      lumtest::Run(m_trials[trial], *m_progress[trial], report);
      return 0;
    } catch (const std::exception& failure) {
      ++m_progress[trial]->result.bad;
      (void)std::fprintf(report, "BAD: %s, %s: %s\n", m_trials[trial].subject.name.c_str(),
                         NameOf(m_trials[trial].scenario), failure.what());
      (void)std::fflush(report);
      return 0;
    }
  }

  // Until a child ends, or it is time to look whether all still move.
  static void WaitForASignal() {
    sigset_t childEnds;
    sigemptyset(&childEnds);
    sigaddset(&childEnds, SIGCHLD);
    const timespec second = {1, 0};
    (void)sigtimedwait(&childEnds, nullptr, &second);
  }

  void Look(Child& child) {
    if (child.pid == 0) {
      return;
    }
    int status = 0;
    if (waitpid(child.pid, &status, WNOHANG) == child.pid) {
      if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        child.pid = 0;
      } else {
        GoOnBehind(child, WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                              : "it ended the process");
      }
      return;
    }
    const unsigned long runs = m_progress[child.trial]->runs;
    if (runs != child.runs) {
      child.runs = runs;
      child.since = Clock::now();
    } else if (Clock::now() - child.since >
               std::chrono::seconds(m_trials[child.trial].subject.limitSeconds) + m_margin) {
      kill(child.pid, SIGKILL);
      waitpid(child.pid, nullptr, 0);
      GoOnBehind(child, "it hung");
    }
  }

  // Counts what has ended the process, and starts another one at the next occasion.
  void GoOnBehind(Child& child, const std::string& reason) {
    CountBad(m_trials[child.trial], *m_progress[child.trial], reason, m_report);
    ++m_progress[child.trial]->nth;
    Start(child, child.trial);
  }

  const std::vector<Trial>& m_trials;
  FILE* m_report;
  const std::chrono::seconds m_margin;
  std::vector<Child> m_children;
  std::vector<Progress*> m_progress;
  sigset_t m_before;
};

}  // namespace

std::vector<Result> RunAll(const std::vector<Trial>& trials, std::size_t atOnce, FILE* report,
                           std::chrono::seconds margin) {
  return Supervisor(trials, atOnce, report, margin).Run();
}

}  // namespace lumtest
