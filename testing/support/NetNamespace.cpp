// A child in a network namespace, over unshare(2), setns(2) and iproute2.

#include "support/NetNamespace.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "support/Files.h"

namespace lumtest {

namespace {

// In the child: the two namespaces' descriptors.
int g_own = -1;
int g_peer = -1;

std::runtime_error Error(const std::string& what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
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
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
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
  Ip({"link", "set", "lo", "up"});
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

// What the child reports instead of running the function.
constexpr char kNotAllowed = 'n';
constexpr char kNotSetUp = 'e';

int RunChild(const std::function<int()>& function, const NetNamespaceOptions& options,
             const UnnamedFile& report) {
  const auto tell = [&report](char kind, const std::string& why) {
    const std::string text = kind + why;
    return write(report.Get(), text.data(), text.size()) < 0 ? 1 : 0;
  };
  try {
    const std::string refused = Enter();
    if (!refused.empty()) {
      return tell(kNotAllowed, refused);
    }
    Ip({"link", "set", "lo", "up"});
    if (options.veth) {
      MakeVeth(options);
    }
  } catch (const std::exception& error) {
    return tell(kNotSetUp, error.what());
  }
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
  return allowed ? ProcessResult::Describe() : "network namespaces are not allowed here: " + reason;
}

NetNamespaceResult RunInNetNamespace(const std::function<int()>& function,
                                     const NetNamespaceOptions& options) {
  const UnnamedFile report;
  SpawnedProcess child([&] { return RunChild(function, options, report); });
  NetNamespaceResult result;
  static_cast<ProcessResult&>(result) = child.Wait(options.timeout);
  const std::string told = report.Text();
  if (told[0] == kNotSetUp) {
    throw std::runtime_error("network namespace: " + told.substr(1));
  }
  result.allowed = told[0] != kNotAllowed;
  result.reason = result.allowed ? "" : told.substr(1);
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
