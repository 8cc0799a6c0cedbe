// Unpacking of gzip bodies within bounds.
#ifndef LUM_BACKEND_GUNZIP_H
#define LUM_BACKEND_GUNZIP_H

#include <cstdint>
#include <string>

enum class GunzipResult {
  kDone,
  kTooLong,  // unpacks to more than the limit
  kCut,      // ends within a gzip member, or holds none
  kBad,      // no gzip data, or damaged
};

// Unpacks the gzip members (RFC 1952) in `packed` one after another and replaces `plain` with what
// they held. Stops as soon as `limit` bytes are exceeded, so that memory stays within `limit` and a
// few kilobytes whatever the input claims. `plain` is unspecified unless the result is kDone.
GunzipResult Gunzip(const std::string& packed, std::uint64_t limit, std::string& plain);

#endif  // LUM_BACKEND_GUNZIP_H
