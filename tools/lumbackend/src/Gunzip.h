// Unpacking of gzip bodies within bounds.
#ifndef LUM_BACKEND_GUNZIP_H
#define LUM_BACKEND_GUNZIP_H

#include <functional>
#include <string>
#include <string_view>

enum class GunzipResult {
  kDone,
  kRefused,  // `receive` did not want more
  kCut,      // ends within a gzip member, or holds none
  kBad,      // no gzip data, or damaged
};

// Unpacks the gzip members (RFC 1952) in `packed` one after another and hands out what they hold
// piece by piece, until `receive` returns false.
GunzipResult Gunzip(const std::string& packed,
                    const std::function<bool(std::string_view)>& receive);

#endif  // LUM_BACKEND_GUNZIP_H
