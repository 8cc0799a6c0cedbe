// The log line of this library: two calls made on the spot, GetInstance() and Log(), so that the
// line number is the statement's own. Each source file defines its kLogPath. Programs read these
// lines, lumcurl among them: docs/compatibility.md, log-exit.

#ifndef LUM_LOG_H
#define LUM_LOG_H

#include "LumLogger.h"

namespace lumhttp {

constexpr int kLogError = 1;    // a failure
constexpr int kLogWarning = 2;  // a tolerated anomaly
constexpr int kLogInfo = 3;     // settings and progress notices

}  // namespace lumhttp

// LUM_LOG(level, function, format, arguments...)
#define LUM_LOG(level, function, ...) \
  LumLogger::GetInstance().Log(kLogPath, __LINE__, function, " ", "", level, __VA_ARGS__)

#endif  // LUM_LOG_H
