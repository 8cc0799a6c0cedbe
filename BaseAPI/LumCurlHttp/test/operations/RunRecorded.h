// Runs the operations of the catalogue over the recording double.

#ifndef LUM_TEST_OPERATIONS_RUNRECORDED_H
#define LUM_TEST_OPERATIONS_RUNRECORDED_H

#include <string>

#include "Endings.h"
#include "recording/Recorder.h"

namespace lumtest {

// Runs an operation whose transfer, if there is one, goes by `script`. What the recorder has been
// told before holds as well.
Outcome RunRecorded(Caller& caller, const Operation& operation, const std::string& url,
                    const Script& script);

}  // namespace lumtest

#endif  // LUM_TEST_OPERATIONS_RUNRECORDED_H
