// One thing that goes wrong at one place: what the torture provokes.

#ifndef LUM_TEST_TORTURE_FAULT_H
#define LUM_TEST_TORTURE_FAULT_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace lumtest {

// Where a fault struck: the return addresses of the calling thread, innermost first. Plain memory,
// so that it can be written from within malloc and read by another process.
struct FaultPlace {
  static constexpr int kMostFrames = 48;
  int depth = 0;
  void* frames[kMostFrames] = {};
};

// A frame by name, as far as the dynamic symbol tables know it.
struct Frame {
  std::string library;   // "libcurl.so.4", without its directory
  std::string function;  // "" for a function that its library does not export
};
std::vector<Frame> Describe(const FaultPlace& place);

// A kind of fault that can be made to strike once, at the nth occasion on the calling thread; all
// occasions before and after it, and all other threads, go unharmed.
class Fault {
 public:
  virtual ~Fault() = default;

  // "allocation", "read EIO": what fails, and how.
  virtual std::string Name() const = 0;

  // From now on, occasion `nth` strikes (1: the very next), and the record below starts anew.
  virtual void Arm(std::size_t nth) = 0;
  virtual void Disarm() = 0;

  // Whether it has struck since Arm.
  virtual bool Struck() const = 0;

  // Whether what it struck was the log or the standard output, whose loss no operation reports.
  virtual bool StruckAnOutput() const { return false; }

  // Whether the caller may be told of it by std::bad_alloc.
  virtual bool MayThrow() const { return false; }

  // Whether a temporary file may stay behind because its removal is what failed.
  virtual bool HindersRemoval() const { return false; }

  // Whether it may hide how large a file is, which is then sent in chunks.
  virtual bool HidesSizes() const { return false; }
};

using Faults = std::vector<std::unique_ptr<Fault>>;

// Where the last fault struck, and where the process ended that should not have: by a signal, or by
// a call of exit().
struct FaultRecord {
  FaultPlace fault;
  FaultPlace end;
};

// From now on every fault, and the end of this process, is described in `record`.
void RecordFaultsIn(FaultRecord* record);

// Describes the calling thread's stack. Allocates nothing.
void RecordFault();

// Both in a line each, the frames of the program itself left out: "libcurl.so.4:curl_easy_setopt <
// libLumCurlHttp.so.0:? < ...".
std::string Describe(const FaultRecord& record);

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_FAULT_H
