// A child in a network namespace, over unshare(2), setns(2) and iproute2.

#include "support/NetNamespace.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "support/Process.h"

namespace lumtest {

namespace {

// In the child: the two namespaces' descriptors.
int g_own = -1;
int g_peer = -1;

std::runtime_error Error(const std::string& what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
}

void WriteProc(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file << text << std::flush;
  if (!file) {
    throw Error("cannot write " + path);
  }
}

// "" or why it is not allowed.
std::string Enter() {
  if (geteuid() == 0) {
    if (unshare(CLONE_NEWNET) == 0) {
      return "";
    }
    if (errno != EPERM) {
      return std::string("unshare: ") + std::strerror(errno);
    }
  }
  // Root of a container may lack the right that root of a new user namespace has.
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
    return std::string("unshare: ") + std::strerror(errno);
  }
  try {
    WriteProc("/proc/self/setgroups", "deny");
    WriteProc("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    WriteProc("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

void BringLoopbackUp() {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request = {};
  std::strcpy(request.ifr_name, "lo");
  bool good = socket >= 0 && ioctl(socket, SIOCGIFFLAGS, &request) == 0;
  if (good) {
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    good = ioctl(socket, SIOCSIFFLAGS, &request) == 0;
  }
  const int error = errno;
  close(socket);
  if (!good) {
    errno = error;
    throw Error("cannot bring lo up");
  }
}

int OpenNamespace() {
  const int opened = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (opened < 0) {
    throw Error("cannot open the network namespace");
  }
  return opened;
}

void SwitchTo(int netNamespace) {
  if (setns(netNamespace, CLONE_NEWNET) != 0) {
    throw Error("setns");
  }
}

void Ip(const std::vector<std::string>& arguments) {
  std::vector<std::string> argv = {"ip"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const ProcessResult result = RunCommand(argv);
  if (!result.Succeeded()) {
    std::string line;
    for (const std::string& argument : argv) {
      line += argument + " ";
    }
    throw std::runtime_error(line + "failed: " + result.Describe());
  }
}

void MakeVeth(const NetNamespaceOptions& options) {
  g_own = OpenNamespace();
  if (unshare(CLONE_NEWNET) != 0) {
    throw Error("unshare for the peer");
  }
  g_peer = OpenNamespace();
  BringLoopbackUp();
  SwitchTo(g_own);
  // `ip` gets none of this process's descriptors, but may look them up.
  const std::string peer = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(g_peer);
  Ip({"link", "add", options.name, "address", options.mac, "type", "veth", "peer", "name",
      options.peerName, "address", options.peerMac, "netns", peer});
  Ip({"address", "add", options.address + "/24", "dev", options.name});
  Ip({"link", "set", options.name, "up"});
  InPeerNamespace([&options] {
    Ip({"address", "add", options.peerAddress + "/24", "dev", options.peerName});
    Ip({"link", "set", options.peerName, "up"});
  });
}

// How far the child came, told through a pipe: 'r' the function ran, 'n' plus a reason namespaces
// are not allowed, 'e' plus a reason they could not be set up.
void Tell(int report, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(report, text.data() + done, text.size() - done);
    if (written <= 0) {
      return;
    }
    done += static_cast<std::size_t>(written);
  }
}

int RunChild(const std::function<int()>& function, const NetNamespaceOptions& options, int report) {
  try {
    const std::string refused = Enter();
    if (!refused.empty()) {
      Tell(report, "n" + refused);
      return 0;
    }
    BringLoopbackUp();
    if (options.veth) {
      MakeVeth(options);
    }
  } catch (const std::exception& error) {
    Tell(report, std::string("e") + error.what());
    return 0;
  }
  Tell(report, "r");
  close(report);
  constexpr int kThrown = 125;
  try {
    return function();
  } catch (const std::exception& error) {
    std::cerr << "exception: " << error.what() << std::endl;
  } catch (...) {
    std::cerr << "exception of an unknown type" << std::endl;
  }
  return kThrown;
}

}  // namespace

std::string NetNamespaceResult::Describe() const {
  if (!allowed) {
    return "network namespaces are not allowed here: " + reason;
  }
  return (timedOut ? "timed out, " : "") +
         (signal != 0 ? "signal " + std::to_string(signal)
                      : "exit status " + std::to_string(exitStatus)) +
         "\n--- standard output\n" + out + "\n--- standard error\n" + err + "\n";
}

NetNamespaceResult RunInNetNamespace(const std::function<int()>& function,
                                     const NetNamespaceOptions& options) {
  int pipes[3][2];  // standard output, standard error, report
  for (int i = 0; i < 3; ++i) {
    if (pipe2(pipes[i], O_CLOEXEC) != 0) {
      const std::runtime_error error = Error("pipe");
      while (i-- > 0) {
        close(pipes[i][0]);
        close(pipes[i][1]);
      }
      throw error;
    }
  }
  // What is buffered here must not come out twice.
  std::cout.flush();
  std::cerr.flush();
  static_cast<void>(std::fflush(nullptr));
  const pid_t child = fork();
  if (child == 0) {
    setpgid(0, 0);
    dup2(pipes[0][1], 1);
    dup2(pipes[1][1], 2);
    const int status = RunChild(function, options, pipes[2][1]);
    // The whole way out, so that leak checkers and coverage counters have their say.
    std::exit(status);
  }
  const int forkError = errno;
  for (const auto& pipe : pipes) {
    close(pipe[1]);
  }
  std::string texts[3];
  NetNamespaceResult result;
  if (child > 0) {
    setpgid(child, child);  // here too: whoever is first
    const auto end = std::chrono::steady_clock::now() + options.timeout;
    while (pipes[0][0] >= 0 || pipes[1][0] >= 0 || pipes[2][0] >= 0) {
      pollfd waiting[] = {
          {pipes[0][0], POLLIN, 0}, {pipes[1][0], POLLIN, 0}, {pipes[2][0], POLLIN, 0}};
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
      if (poll(waiting, 3, static_cast<int>(std::max<std::int64_t>(0, left.count()))) == 0) {
        result.timedOut = true;
        kill(-child, SIGKILL);
        break;
      }
      for (int i = 0; i < 3; ++i) {
        char piece[16 * 1024];
        ssize_t got = -1;
        if (waiting[i].revents != 0 && (got = read(pipes[i][0], piece, sizeof piece)) > 0) {
          texts[i].append(piece, static_cast<std::size_t>(got));
        } else if (waiting[i].revents != 0 && (got == 0 || errno != EINTR)) {
          close(pipes[i][0]);
          pipes[i][0] = -1;
        }
      }
    }
  }
  for (const auto& pipe : pipes) {
    if (pipe[0] >= 0) {
      close(pipe[0]);
    }
  }
  if (child < 0) {
    errno = forkError;
    throw Error("fork");
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (texts[2].compare(0, 1, "e") == 0) {
    throw std::runtime_error("network namespace: " + texts[2].substr(1));
  }
  result.allowed = texts[2].compare(0, 1, "n") != 0;
  result.reason = result.allowed ? "" : texts[2].substr(1);
  if (WIFEXITED(status)) {
    result.exitStatus = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  result.out = texts[0];
  result.err = texts[1];
  return result;
}

void InPeerNamespace(const std::function<void()>& call) {
  if (g_peer < 0) {
    throw std::runtime_error("there is no peer's network namespace");
  }
  SwitchTo(g_peer);
  try {
    call();
  } catch (...) {
    SwitchTo(g_own);
    throw;
  }
  SwitchTo(g_own);
}

}  // namespace lumtest
