// The verdict over one run in which a fault struck.

#ifndef LUM_TEST_TORTURE_JUDGE_H
#define LUM_TEST_TORTURE_JUDGE_H

#include <string>

#include "Fault.h"
#include "Subject.h"

namespace lumtest {

enum class Outcome {
  kSame,      // the fault was absorbed: all is as without it, a lost log line perhaps excepted
  kFailure,   // a failure that the contract states
  kBadAlloc,  // std::bad_alloc at the caller
  kBad,       // anything else
};

struct Verdict {
  Outcome outcome;
  std::string reason = "";   // of kBad
  bool keepsMemory = false;  // as the contract has it
};

// `usual` is what the operation does without a fault.
Verdict Judge(const Subject& subject, const World& world, const Fault& fault,
              const Observation& usual, const Observation& seen);

// Whether what another library is known to do wrong explains the verdict. The excuses were each
// found out by hand.
bool IsExcused(const std::string& reason, const FaultRecord& record);

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_JUDGE_H
