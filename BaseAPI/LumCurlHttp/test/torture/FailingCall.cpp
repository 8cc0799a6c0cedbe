// System calls handed to a signal handler, which makes them or lets them fail.

#include "FailingCall.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <ucontext.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

// A system call whose return address the filter knows, so that the handler's own calls pass.
asm(R"(
  .text
  .hidden LumSystemCall
  .globl LumSystemCall
  .type LumSystemCall, @function
LumSystemCall:
  mov %rdi, %rax
  mov %rsi, %rdi
  mov %rdx, %rsi
  mov %rcx, %rdx
  mov %r8, %r10
  mov %r9, %r8
  mov 8(%rsp), %r9
  syscall
  .hidden LumSystemCallEnd
  .globl LumSystemCallEnd
LumSystemCallEnd:
  ret
  .size LumSystemCall, .-LumSystemCall
)");
extern "C" long LumSystemCall(long number, long, long, long, long, long, long);
extern "C" const char LumSystemCallEnd[];

namespace lumtest {
namespace {

struct Call {
  long number;
  long arguments[6];

  long Make() const {
    return LumSystemCall(number, arguments[0], arguments[1], arguments[2], arguments[3],
                         arguments[4], arguments[5]);
  }
};

// What is armed on this thread. Plain data: the handler reads it.
thread_local const CallFault* t_fault = nullptr;
thread_local std::size_t t_left = 0;  // 0: none fails
thread_local bool t_struck = false;
thread_local bool t_struckAnOutput = false;

bool IsSocket(long descriptor) {
  struct stat status = {};
  return LumSystemCall(SYS_fstat, descriptor, reinterpret_cast<long>(&status), 0, 0, 0, 0) == 0 &&
         S_ISSOCK(status.st_mode);
}

bool IsStream(long descriptor) {
  int type = 0;
  socklen_t size = sizeof type;
  return LumSystemCall(SYS_getsockopt, descriptor, SOL_SOCKET, SO_TYPE,
                       reinterpret_cast<long>(&type), reinterpret_cast<long>(&size), 0) == 0 &&
         type == SOCK_STREAM;
}

bool Concerns(const CallFault& fault, const Call& call) {
  if (std::find(fault.calls.begin(), fault.calls.end(), call.number) == fault.calls.end()) {
    return false;
  }
  switch (fault.target) {
    case Target::kAny:
      return true;
    case Target::kFile:
      return !IsSocket(call.arguments[0]);
    case Target::kSocket:
      return IsSocket(call.arguments[0]);
    case Target::kStream:
      return IsStream(call.arguments[0]);
    case Target::kCreates: {
      const long flags = call.arguments[call.number == SYS_open ? 1 : 2];
      return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    }
    case Target::kCopies:
      return call.arguments[1] == F_DUPFD || call.arguments[1] == F_DUPFD_CLOEXEC;
  }
  return false;
}

// Half of what was asked for, but something.
long MakeHalf(Call call) {
  iovec first = {};
  if (call.number == SYS_readv || call.number == SYS_writev) {
    std::memcpy(&first, reinterpret_cast<const void*>(call.arguments[1]), sizeof first);
    first.iov_len = (first.iov_len + 1) / 2;
    call.arguments[1] = reinterpret_cast<long>(&first);
    call.arguments[2] = 1;
  } else {
    call.arguments[2] = (call.arguments[2] + 1) / 2;
  }
  return call.Make();
}

long Strike(const CallFault& fault, const Call& call) {
  t_struck = true;
  t_struckAnOutput =
      call.number != SYS_openat && (call.arguments[0] == 1 || call.arguments[0] == 2);
  RecordFault();
  if (fault.error == 0) {
    return MakeHalf(call);
  }
  if (call.number == SYS_close) {
    (void)call.Make();  // whatever it reports, the descriptor is gone
  }
  return -fault.error;
}

void Handle(int /*signal*/, siginfo_t* info, void* context) {
  greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const Call call = {info->si_syscall,
                     {registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                      registers[REG_R10], registers[REG_R8], registers[REG_R9]}};
  const bool strikes = t_left != 0 && Concerns(*t_fault, call) && --t_left == 0;
  registers[REG_RAX] = strikes ? Strike(*t_fault, call) : call.Make();
}

const std::vector<CallFault>& CallFaults() {
  using T = Target;
  const std::vector<long> open = {SYS_open, SYS_openat};
  const std::vector<long> read = {SYS_read, SYS_pread64, SYS_readv};
  const std::vector<long> write = {SYS_write, SYS_pwrite64, SYS_writev};
  const std::vector<long> status = {SYS_fstat, SYS_newfstatat, SYS_stat, SYS_lstat, SYS_statx};
  const std::vector<long> access = {SYS_access, SYS_faccessat, SYS_faccessat2};
  const std::vector<long> mode = {SYS_chmod, SYS_fchmod, SYS_fchmodat};
  const std::vector<long> link = {SYS_link, SYS_linkat};
  const std::vector<long> rename = {SYS_rename, SYS_renameat, SYS_renameat2};
  const std::vector<long> remove = {SYS_unlink, SYS_unlinkat};
  const std::vector<long> pair = {SYS_socketpair, SYS_pipe, SYS_pipe2, SYS_eventfd2};
  const std::vector<long> poll = {SYS_poll, SYS_ppoll, SYS_select, SYS_pselect6};
  const std::vector<long> send = {SYS_sendto, SYS_sendmsg};
  const std::vector<long> receive = {SYS_recvfrom, SYS_recvmsg};
  const std::vector<long> options = {SYS_getsockopt, SYS_setsockopt, SYS_getsockname,
                                     SYS_getpeername};
  static const std::vector<CallFault> kFaults = {
      {"open", open, T::kAny, EIO},
      {"open", open, T::kAny, EMFILE},
      {"open", open, T::kAny, EINTR},
      {"open", open, T::kCreates, ENOSPC},
      {"read", read, T::kFile, EIO},
      {"read", read, T::kFile, EINTR},
      {"read", read, T::kFile, 0},
      {"read", read, T::kSocket, ECONNRESET},
      {"read", read, T::kSocket, EINTR},
      {"read", read, T::kSocket, 0},
      {"write", write, T::kFile, EIO},
      {"write", write, T::kFile, ENOSPC},
      {"write", write, T::kFile, EINTR},
      {"write", write, T::kFile, 0},
      {"write", write, T::kSocket, ECONNRESET},
      {"write", write, T::kSocket, EINTR},
      {"write", write, T::kSocket, 0},
      {"lseek", {SYS_lseek}, T::kAny, EIO},
      {"stat", status, T::kAny, EIO},
      {"getdents", {SYS_getdents64}, T::kAny, EIO},
      {"readlink", {SYS_readlink, SYS_readlinkat}, T::kAny, EIO},
      {"access", access, T::kAny, ENOENT},
      {"chmod", mode, T::kAny, EPERM},
      {"link", link, T::kAny, EIO},
      {"link", link, T::kAny, EEXIST},
      {"rename", rename, T::kAny, EIO},
      {"rename", rename, T::kAny, ENOSPC},
      {"unlink", remove, T::kAny, EIO},
      {"close", {SYS_close}, T::kAny, EIO},
      {"close", {SYS_close}, T::kAny, EINTR},
      {"fcntl", {SYS_fcntl}, T::kCopies, EMFILE},
      {"socket", {SYS_socket}, T::kAny, EMFILE},
      {"socketpair", pair, T::kAny, EMFILE},
      {"bind", {SYS_bind}, T::kAny, EADDRINUSE},
      {"connect", {SYS_connect}, T::kAny, ECONNREFUSED},
      {"connect", {SYS_connect}, T::kAny, EINTR},
      {"socket option", options, T::kAny, ENOBUFS},
      {"poll", poll, T::kAny, EINTR},
      {"poll", poll, T::kAny, ENOMEM},
      {"send", send, T::kAny, ECONNRESET},
      {"send", send, T::kAny, EINTR},
      {"send", {SYS_sendto}, T::kStream, 0},
      {"recv", receive, T::kAny, ECONNRESET},
      {"recv", receive, T::kAny, EINTR},
      {"recv", {SYS_recvfrom}, T::kStream, 0},
  };
  return kFaults;
}

// Hands the calls of all faults to the handler, for this thread and those that it starts.
void Trap() {
  struct sigaction action = {};
  action.sa_sigaction = &Handle;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigaction(SIGSYS, &action, nullptr);

  std::vector<long> calls;
  for (const CallFault& fault : CallFaults()) {
    calls.insert(calls.end(), fault.calls.begin(), fault.calls.end());
  }
  std::sort(calls.begin(), calls.end());
  calls.erase(std::unique(calls.begin(), calls.end()), calls.end());

  const auto own = reinterpret_cast<std::uintptr_t>(LumSystemCallEnd);
  const auto low = static_cast<std::uint32_t>(own);
  const auto high = static_cast<std::uint32_t>(own >> 32);
  constexpr auto kLoad = BPF_LD | BPF_W | BPF_ABS;
  constexpr auto kEqual = BPF_JMP | BPF_JEQ | BPF_K;
  constexpr unsigned int kAddress = offsetof(seccomp_data, instruction_pointer);
  std::vector<sock_filter> program = {
      BPF_STMT(kLoad, kAddress),
      BPF_JUMP(kEqual, low, 0, 3),
      BPF_STMT(kLoad, kAddress + 4),
      BPF_JUMP(kEqual, high, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(kLoad, offsetof(seccomp_data, nr)),
  };
  for (const long call : calls) {
    program.push_back(BPF_JUMP(kEqual, static_cast<std::uint32_t>(call), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    throw std::runtime_error("cannot filter system calls");
  }
}

}  // namespace

FailingCall::FailingCall(CallFault fault) : m_fault(std::move(fault)) {}

std::string FailingCall::Name() const {
  return std::string(m_fault.name) + " " +
         (m_fault.error == 0 ? "short" : strerrorname_np(m_fault.error));
}

void FailingCall::Arm(std::size_t nth) {
  static thread_local bool t_trapped = false;
  if (!t_trapped) {
    Trap();
    t_trapped = true;
  }
  t_fault = &m_fault;
  t_struck = false;
  t_struckAnOutput = false;
  t_left = nth;
}

void FailingCall::Disarm() {
  t_left = 0;
}

bool FailingCall::Struck() const {
  return t_struck;
}

bool FailingCall::StruckAnOutput() const {
  return t_struckAnOutput;
}

bool FailingCall::HindersRemoval() const {
  return std::strcmp(m_fault.name, "unlink") == 0;
}

bool FailingCall::HidesSizes() const {
  return std::strcmp(m_fault.name, "lseek") == 0;
}

Faults EveryCallFault() {
  Faults all;
  for (const CallFault& fault : CallFaults()) {
    all.push_back(std::make_unique<FailingCall>(fault));
  }
  return all;
}

}  // namespace lumtest
