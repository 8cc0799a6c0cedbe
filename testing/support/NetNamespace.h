// Runs part of a test in a network of its own.

#ifndef LUM_TESTING_SUPPORT_NETNAMESPACE_H
#define LUM_TESTING_SUPPORT_NETNAMESPACE_H

#include <chrono>
#include <functional>
#include <string>

#include "support/Process.h"

namespace lumtest {

struct NetNamespaceOptions {
  // With `veth`, a pair of virtual interfaces is made with iproute2's `ip`. One end lies in the new
  // namespace, the other in a second one, the peer's, so that packets truly cross the pair.
  bool veth = false;
  std::string name = "lum0";
  std::string mac = "02:4c:75:6d:00:01";
  std::string address = "10.203.0.1";  // both ends are in one /24
  std::string peerName = "lumpeer0";
  std::string peerMac = "02:4c:75:6d:00:02";
  std::string peerAddress = "10.203.0.2";

  // The child is killed when this has passed.
  std::chrono::milliseconds timeout{60000};
};

// How it came out: `exitStatus` is what the function returned.
struct NetNamespaceResult : ProcessResult {
  bool allowed =
      false;           // false: this machine allows no network namespaces; the function did not run
  std::string reason;  // why it is not allowed

  bool Succeeded() const { return allowed && exitStatus == 0; }
  std::string Describe() const;
};

// Forks a child that enters a new network namespace (and, unless it is root's, a new user namespace
// in which it is root), brings the loopback interface up, makes what `options` ask for, runs
// `function` and exits with what it returned, which must lie between 0 and 255. In the child all of
// the test's objects are copies: a failed expectation there only prints, so end `function` with
//
//   return ::testing::Test::HasFailure() ? 1 : 0;
//
// and expect Succeeded(). Exceptions that leave `function` are printed, with exit status 125.
//
// Call it while the process has no other threads (no wire server running): the child has only a
// copy of the calling one. Throws std::runtime_error when no child can be made, or when namespaces
// are allowed but cannot be set up (`ip` missing, say).
NetNamespaceResult RunInNetNamespace(const std::function<int()>& function,
                                     const NetNamespaceOptions& options = {});

// For `function`, with the option `veth`: runs `call` on this thread in the peer's namespace. What
// is opened there, a wire server with its threads included, stays there.
void InPeerNamespace(const std::function<void()>& call);

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_NETNAMESPACE_H
