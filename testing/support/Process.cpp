// Children: fork and exec, pipes, and one reader for the pipes.

#include "support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <regex.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "support/Signals.h"

namespace lumtest {

namespace {

// The ends of three pipes that the test keeps, and the child.
struct Child {
  pid_t pid = -1;
  int in = -1;
  int out = -1;
  int err = -1;
};

void CloseIf(int* descriptor) {
  if (*descriptor >= 0) {
    close(*descriptor);
    *descriptor = -1;
  }
}

std::vector<std::string> Environment(const std::vector<std::string>& changes) {
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('=') + 1);
    const bool replaced = std::any_of(
        changes.begin(), changes.end(),
        [&name](const std::string& change) { return change.compare(0, name.size(), name) == 0; });
    if (!replaced) {
      all.push_back(text);
    }
  }
  all.insert(all.end(), changes.begin(), changes.end());
  return all;
}

std::vector<char*> Pointers(std::vector<std::string>* texts) {
  std::vector<char*> pointers;
  for (std::string& text : *texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// The child between fork and exec: system calls only, as other threads may have held any lock.
[[noreturn]] void Become(const int* ends, int report, const char* directory, pid_t parent,
                         char** argv, char** environment) {
  bool good = true;
  for (int i = 0; i < 3; ++i) {
    good = good && dup2(ends[i], i) == i;
  }
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  good = good && getppid() == parent;
  for (int signal = 1; signal < NSIG; ++signal) {
    static_cast<void>(::signal(signal, SIG_DFL));
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  constexpr unsigned kCloseOnExec = 1u << 2;
  syscall(SYS_close_range, 3u, ~0u, kCloseOnExec);
  good = good && (*directory == '\0' || chdir(directory) == 0);
  if (good) {
    execvpe(argv[0], argv, environment);
  }
  const int error = errno;
  const ssize_t ignored = write(report, &error, sizeof error);
  static_cast<void>(ignored);
  _exit(127);
}

Child Start(const std::vector<std::string>& argv, const ProcessOptions& options) {
  if (argv.empty()) {
    throw std::runtime_error("no program to start");
  }
  // Pairs of standard input, output, error, and of the report of a failed exec.
  int pipes[4][2];
  for (int i = 0; i < 4; ++i) {
    if (pipe2(pipes[i], O_CLOEXEC) != 0) {
      const std::string reason = std::strerror(errno);
      while (i-- > 0) {
        close(pipes[i][0]);
        close(pipes[i][1]);
      }
      throw std::runtime_error("cannot start " + argv[0] + ": " + reason);
    }
  }
  std::vector<std::string> arguments = argv;
  std::vector<std::string> environment = Environment(options.environment);
  const std::vector<char*> argumentPointers = Pointers(&arguments);
  const std::vector<char*> environmentPointers = Pointers(&environment);
  const int ends[] = {pipes[0][0], pipes[1][1], pipes[2][1]};
  const pid_t parent = getpid();

  Child child;
  {
    const AllSignalsBlocked blocked;
    child.pid = fork();
    if (child.pid == 0) {
      Become(ends, pipes[3][1], options.directory.c_str(), parent,
             const_cast<char**>(argumentPointers.data()),
             const_cast<char**>(environmentPointers.data()));
    }
  }
  int error = child.pid < 0 ? errno : 0;
  for (const int end : {ends[0], ends[1], ends[2], pipes[3][1]}) {
    close(end);
  }
  child.in = pipes[0][1];
  child.out = pipes[1][0];
  child.err = pipes[2][0];
  if (child.pid >= 0) {
    // The end of the report is the exec's success.
    ssize_t got;
    do {
      got = read(pipes[3][0], &error, sizeof error);
    } while (got < 0 && errno == EINTR);
    if (got > 0) {
      waitpid(child.pid, nullptr, 0);
    }
  }
  close(pipes[3][0]);
  if (error != 0) {
    close(child.in);
    close(child.out);
    close(child.err);
    throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(error));
  }
  for (const int end : {child.in, child.out, child.err}) {
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
  return child;
}

// A compiled POSIX regular expression.
class Regex {
 public:
  explicit Regex(const std::string& text) {
    if (regcomp(&m_compiled, text.c_str(), REG_EXTENDED) != 0) {
      throw std::runtime_error("not a regular expression: " + text);
    }
  }
  ~Regex() { regfree(&m_compiled); }
  Regex(const Regex&) = delete;
  Regex& operator=(const Regex&) = delete;

  // Whether it is found in `line`; `groups`, unless null, gets the match and its groups.
  bool Search(const std::string& line, std::vector<std::string>* groups) const {
    std::vector<regmatch_t> matches(m_compiled.re_nsub + 1);
    if (regexec(&m_compiled, line.c_str(), matches.size(), matches.data(), 0) != 0) {
      return false;
    }
    if (groups != nullptr) {
      groups->clear();
      for (const regmatch_t& match : matches) {
        groups->push_back(match.rm_so < 0
                              ? ""
                              : line.substr(static_cast<std::size_t>(match.rm_so),
                                            static_cast<std::size_t>(match.rm_eo - match.rm_so)));
      }
    }
    return true;
  }

 private:
  regex_t m_compiled;
};

// Whether something was read; closes `*descriptor` at its end.
bool ReadSome(int* descriptor, std::string* text) {
  char piece[64 * 1024];
  const ssize_t got = *descriptor < 0 ? -1 : read(*descriptor, piece, sizeof piece);
  if (got > 0) {
    text->append(piece, static_cast<std::size_t>(got));
    return true;
  }
  if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
    CloseIf(descriptor);
  }
  return false;
}

}  // namespace

std::string ProcessResult::Describe() const {
  std::string text = timedOut ? "timed out" : "";
  text += signal != 0 ? " signal " + std::to_string(signal)
                      : " exit status " + std::to_string(exitStatus);
  return text + "\n--- standard output\n" + out + "\n--- standard error\n" + err + "\n";
}

// One thread feeds and reads the pipes and reaps the child; everyone else waits for what it tells.
struct SpawnedProcess::State {
  Child child;
  std::string input;

  std::mutex mutex;
  std::condition_variable changed;
  std::string out;
  std::string err;
  std::optional<int> status;  // of waitpid, once the child has been reaped
  bool timedOut = false;
  std::thread reader;

  void Read();
  void Feed(bool ready, std::size_t* fed);
  bool Kill(int signal, bool group);
  bool WaitForEnd(std::chrono::milliseconds deadline);
  ProcessResult Result();
};

// Signals the child unless it has been reaped: its number could be somebody else's by then.
bool SpawnedProcess::State::Kill(int signal, bool group) {
  const std::lock_guard<std::mutex> lock(mutex);
  return !status && kill(group ? -child.pid : child.pid, signal) == 0;
}

void SpawnedProcess::State::Feed(bool ready, std::size_t* fed) {
  if (ready) {
    const ssize_t written = write(child.in, input.data() + *fed, input.size() - *fed);
    *fed += written > 0 ? static_cast<std::size_t>(written) : 0;
    if (written < 0 && errno != EAGAIN && errno != EINTR) {
      *fed = input.size();  // the child has closed its end
    }
  }
  if (*fed == input.size()) {
    CloseIf(&child.in);
  }
}

void SpawnedProcess::State::Read() {
  // A child that has ended is found by asking: its pipes may be held open by what it left behind.
  constexpr int kRoundMilliseconds = 10;
  std::size_t fed = 0;
  Feed(false, &fed);
  bool ended = false;
  int waitStatus = 0;
  while (true) {
    pollfd waiting[] = {{child.in, POLLOUT, 0}, {child.out, POLLIN, 0}, {child.err, POLLIN, 0}};
    poll(waiting, 3, ended ? 0 : kRoundMilliseconds);
    Feed(waiting[0].revents != 0, &fed);
    bool got = false;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      got = (waiting[1].revents != 0 && ReadSome(&child.out, &out));
      got = (waiting[2].revents != 0 && ReadSome(&child.err, &err)) || got;
      changed.notify_all();
    }
    if (ended && !got) {
      break;
    }
    if (!ended) {
      const std::lock_guard<std::mutex> lock(mutex);
      // Not reaped yet: Kill() must not meet a number that is free again.
      siginfo_t info;
      info.si_pid = 0;
      ended =
          waitid(P_PID, static_cast<id_t>(child.pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
          info.si_pid == child.pid;
    }
  }
  const std::lock_guard<std::mutex> lock(mutex);
  waitpid(child.pid, &waitStatus, 0);
  status = waitStatus;
  CloseIf(&child.in);
  CloseIf(&child.out);
  CloseIf(&child.err);
  changed.notify_all();
}

bool SpawnedProcess::State::WaitForEnd(std::chrono::milliseconds deadline) {
  std::unique_lock<std::mutex> lock(mutex);
  return changed.wait_for(lock, deadline, [this] { return status.has_value(); });
}

// For a process that has ended.
ProcessResult SpawnedProcess::State::Result() {
  const std::lock_guard<std::mutex> lock(mutex);
  ProcessResult result;
  result.timedOut = timedOut;
  if (WIFEXITED(*status)) {
    result.exitStatus = WEXITSTATUS(*status);
  } else if (WIFSIGNALED(*status)) {
    result.signal = WTERMSIG(*status);
  }
  result.out = out;
  result.err = err;
  return result;
}

SpawnedProcess::SpawnedProcess(const std::vector<std::string>& argv, const ProcessOptions& options)
    : m_state(std::make_unique<State>()) {
  m_state->input = options.input;
  m_state->child = Start(argv, options);
  const AllSignalsBlocked blocked;
  m_state->reader = std::thread([state = m_state.get()] { state->Read(); });
}

SpawnedProcess::~SpawnedProcess() {
  Stop();
  m_state->reader.join();
}

pid_t SpawnedProcess::Pid() const {
  return m_state->child.pid;
}

bool SpawnedProcess::WaitForLine(const std::string& regex, std::vector<std::string>* groups,
                                 std::chrono::milliseconds deadline) {
  const Regex wanted(regex);
  // Whole lines only, but for the last one of a program that has ended.
  const auto found = [&](const std::string& text) {
    for (std::size_t start = 0; start < text.size();) {
      const std::size_t end = text.find('\n', start);
      if (end == std::string::npos && !m_state->status) {
        return false;
      }
      if (wanted.Search(text.substr(start, end - start), groups)) {
        return true;
      }
      start = end == std::string::npos ? text.size() : end + 1;
    }
    return false;
  };
  bool seen = false;
  std::unique_lock<std::mutex> lock(m_state->mutex);
  m_state->changed.wait_for(lock, deadline, [&] {
    seen = found(m_state->out) || found(m_state->err);
    return seen || m_state->status;
  });
  return seen;
}

std::string SpawnedProcess::Out() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->out;
}

std::string SpawnedProcess::Err() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->err;
}

void SpawnedProcess::Signal(int signal) {
  m_state->Kill(signal, false);
}

ProcessResult SpawnedProcess::Wait(std::chrono::milliseconds deadline) {
  if (!m_state->WaitForEnd(deadline)) {
    {
      const std::lock_guard<std::mutex> lock(m_state->mutex);
      m_state->timedOut = true;
    }
    m_state->Kill(SIGKILL, true);
    m_state->WaitForEnd(std::chrono::hours(1));
  }
  return m_state->Result();
}

ProcessResult SpawnedProcess::Stop(std::chrono::milliseconds grace) {
  m_state->Kill(SIGTERM, false);
  return Wait(grace);
}

ProcessResult RunCommand(const std::vector<std::string>& argv, const ProcessOptions& options,
                         std::chrono::milliseconds timeout) {
  return SpawnedProcess(argv, options).Wait(timeout);
}

}  // namespace lumtest
