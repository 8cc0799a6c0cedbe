// What the operations that return an int return.

#ifndef LUM_RESULT_CODES_H
#define LUM_RESULT_CODES_H

namespace lumhttp {

constexpr int kDone = 0;
constexpr int kNoPrivate = -9999;  // nothing was sent
constexpr int kFailed = -10000;

}  // namespace lumhttp

#endif  // LUM_RESULT_CODES_H
