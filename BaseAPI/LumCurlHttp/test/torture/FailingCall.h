// File and socket calls, of which one can be made to fail or to do half its work.

#ifndef LUM_TEST_TORTURE_FAILINGCALL_H
#define LUM_TEST_TORTURE_FAILINGCALL_H

#include <string>
#include <vector>

#include "Fault.h"

namespace lumtest {

// Which calls a fault is for, by what they are done to.
enum class Target {
  kAny,
  kFile,     // a descriptor that is no socket
  kSocket,   // one that is
  kStream,   // a socket that may take or give a part of what it is asked for
  kCreates,  // an open() that may create
  kCopies,   // an fcntl() that duplicates a descriptor
};

// A call and how it goes wrong.
struct CallFault {
  const char* name;         // "read"
  std::vector<long> calls;  // the numbers of its variants
  Target target;
  int error;  // an errno value; 0: half of what was asked for is done
};

// A fault at the boundary of the kernel, by a seccomp filter that hands the listed calls of the
// thread to a signal handler: an interposed library function would miss the calls that glibc makes
// within itself, for stdio and getifaddrs among others. Of one thread, and of those it starts.
class FailingCall : public Fault {
 public:
  explicit FailingCall(CallFault fault);

  std::string Name() const override;
  void Arm(std::size_t nth) override;
  void Disarm() override;
  bool Struck() const override;
  bool StruckAnOutput() const override;
  bool HindersRemoval() const override;
  bool HidesSizes() const override;

 private:
  const CallFault m_fault;
};

// Every call that the library, libcurl or the platform's libraries make, with each of its usual
// errors.
Faults EveryCallFault();

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_FAILINGCALL_H
