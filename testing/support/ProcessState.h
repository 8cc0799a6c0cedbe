// What a process holds: memory and descriptors.

#ifndef LUM_TESTING_SUPPORT_PROCESSSTATE_H
#define LUM_TESTING_SUPPORT_PROCESSSTATE_H

#include <unistd.h>

#include <cstddef>
#include <string>
#include <vector>

namespace lumtest {

// Bytes of memory resident now (VmRSS), and the most there ever were (VmHWM).
std::size_t ResidentBytes(pid_t process = getpid());
std::size_t PeakResidentBytes(pid_t process = getpid());

// Of this process: makes the peak what is resident now, so that the next peak is that of what
// follows. False where the kernel does not allow it.
bool ResetPeakResident();

// How many descriptors this process has open, and what each one is ("7 socket:[123]"), for failure
// messages. The wire server's own connections count too: wait for WaitIdle() before comparing.
std::size_t OpenDescriptors();
std::vector<std::string> DescribeDescriptors();

}  // namespace lumtest

#endif  // LUM_TESTING_SUPPORT_PROCESSSTATE_H
