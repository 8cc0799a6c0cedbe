// The log line of this library: two calls made on the spot, GetInstance() and Log(), so that the
// line number is the statement's own. Each source file that logs defines its kLogPath.

#ifndef LUM_FILE_SYS_LOG_H
#define LUM_FILE_SYS_LOG_H

#include "LumLogger.h"

namespace lumfilesys {

constexpr int kLogWarning = 2;  // a tolerated anomaly

}  // namespace lumfilesys

// LUM_LOG(level, function, format, arguments...)
#define LUM_LOG(level, function, ...) \
  LumLogger::GetInstance().Log(kLogPath, __LINE__, function, " ", "", level, __VA_ARGS__)

#endif  // LUM_FILE_SYS_LOG_H
