// Starts programs, and copies of this one, with output into files.

#include "support/Process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "support/Signals.h"

namespace lumtest {

namespace {

constexpr std::chrono::milliseconds kForEver{-1};

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
// Returns when there is no such program.
void Become(int input, const char* directory, pid_t parent, char* const* argv,
            char* const* environment) {
  for (int signal = 1; signal < NSIG; ++signal) {
    static_cast<void>(::signal(signal, SIG_DFL));
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  constexpr unsigned kCloseOnExec = 1u << 2;
  syscall(SYS_close_range, 3u, ~0u, kCloseOnExec);
  if (dup2(input, 0) == 0 && getppid() == parent && (*directory == '\0' || chdir(directory) == 0)) {
    execvpe(argv[0], argv, environment);
  }
}

// Whether `wanted` is found in a line of `text`; its last one counts as a whole line when it has a
// line end or `ended`.
bool FindLine(const std::string& text, bool ended, const std::regex& wanted,
              std::vector<std::string>* groups) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if ((ended || !lines.eof()) && std::regex_search(line, match, wanted)) {
      if (groups != nullptr) {
        groups->assign(match.begin(), match.end());
      }
      return true;
    }
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

SpawnedProcess::SpawnedProcess(const std::vector<std::string>& argv,
                               const ProcessOptions& options) {
  if (argv.empty()) {
    throw std::runtime_error("no program to start");
  }
  std::vector<std::string> arguments = argv;
  std::vector<std::string> environment = Environment(options.environment);
  const std::vector<char*> argumentPointers = Pointers(&arguments);
  const std::vector<char*> environmentPointers = Pointers(&environment);
  const UnnamedFile input(options.input);
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
  }
  const FileDescriptor report(ends[0]);
  FileDescriptor told(ends[1]);
  {
    const AllSignalsBlocked blocked;
    Fork([&, parent = getpid()] {
      Become(input.Get(), options.directory.c_str(), parent, argumentPointers.data(),
             environmentPointers.data());
      const ssize_t ignored = write(told.Get(), &errno, sizeof errno);
      static_cast<void>(ignored);
      _exit(127);
    });
  }
  told = FileDescriptor();
  int error = 0;
  // The end of the report is the exec's success.
  if (read(report.Get(), &error, sizeof error) != 0) {
    HasEnded(kForEver);
    throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(error));
  }
}

SpawnedProcess::SpawnedProcess(const std::function<int()>& function) {
  // What is buffered here must not come out twice.
  std::cout.flush();
  std::cerr.flush();
  static_cast<void>(std::fflush(nullptr));
  // The whole way out, so that leak checkers and coverage counters have their say.
  Fork([&function] { std::exit(function()); });
}

void SpawnedProcess::Fork(const std::function<void()>& child) {
  m_pid = fork();
  if (m_pid == 0) {
    dup2(m_out.Get(), 1);
    dup2(m_err.Get(), 2);
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    child();
  }
  if (m_pid < 0) {
    throw std::runtime_error(std::string("cannot fork: ") + std::strerror(errno));
  }
}

SpawnedProcess::~SpawnedProcess() {
  Stop();
}

// Looks again and again: a descriptor of a process, which could be waited for with a limit, is
// nothing that valgrind knows.
bool SpawnedProcess::HasEnded(std::chrono::milliseconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  const bool forEver = deadline == kForEver;
  while (!m_status) {
    int status = 0;
    if (waitpid(m_pid, &status, forEver ? 0 : WNOHANG) == m_pid) {
      m_status = status;
    } else if (!forEver && std::chrono::steady_clock::now() >= end) {
      break;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  return m_status.has_value();
}

bool SpawnedProcess::WaitForLine(const std::string& regex, std::vector<std::string>* groups,
                                 std::chrono::milliseconds deadline) {
  const std::regex wanted(regex, std::regex::extended);
  const auto end = std::chrono::steady_clock::now() + deadline;
  // What is written to a file wakes nobody, so that it is looked at again and again.
  for (std::chrono::milliseconds round{0};; round = std::chrono::milliseconds(5)) {
    const bool ended = HasEnded(round);
    if (FindLine(Out(), ended, wanted, groups) || FindLine(Err(), ended, wanted, groups)) {
      return true;
    }
    if (ended || std::chrono::steady_clock::now() >= end) {
      return false;
    }
  }
}

// Unless it has been reaped: its number could be somebody else's by then.
void SpawnedProcess::Signal(int signal) {
  if (!HasEnded(std::chrono::milliseconds(0))) {
    kill(m_pid, signal);
  }
}

ProcessResult SpawnedProcess::Wait(std::chrono::milliseconds deadline) {
  ProcessResult result;
  if (!HasEnded(deadline)) {
    result.timedOut = true;
    kill(-m_pid, SIGKILL);
    HasEnded(kForEver);
  }
  if (WIFEXITED(*m_status)) {
    result.exitStatus = WEXITSTATUS(*m_status);
  } else {
    result.signal = WTERMSIG(*m_status);
  }
  result.out = Out();
  result.err = Err();
  return result;
}

ProcessResult SpawnedProcess::Stop(std::chrono::milliseconds grace) {
  Signal(SIGTERM);
  return Wait(grace);
}

ProcessResult RunCommand(const std::vector<std::string>& argv, const ProcessOptions& options,
                         std::chrono::milliseconds timeout) {
  return SpawnedProcess(argv, options).Wait(timeout);
}

}  // namespace lumtest
