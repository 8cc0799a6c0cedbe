// Packing for tests.
#ifndef LUM_BACKEND_TEST_GZIP_H
#define LUM_BACKEND_TEST_GZIP_H

#include <zlib.h>

#include <stdexcept>
#include <string>

namespace lumtest {

// One gzip member.
inline std::string Gzip(const std::string& text) {
  z_stream stream = {};
  if (deflateInit2(&stream, 9, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2");
  }
  std::string packed(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  const int result = deflate(&stream, Z_FINISH);
  packed.resize(packed.size() - stream.avail_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) {
    throw std::runtime_error("deflate");
  }
  return packed;
}

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_GZIP_H
