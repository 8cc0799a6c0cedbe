// zlib's inflate.
#include "Gunzip.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <new>

namespace {

constexpr int kGzipOnly = 16 + MAX_WBITS;  // no zlib format, no raw deflate

struct Inflater {
  Inflater() {
    if (inflateInit2(&stream, kGzipOnly) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;
  ~Inflater() { inflateEnd(&stream); }

  z_stream stream = {};
};

}  // namespace

GunzipResult Gunzip(const std::string& packed,
                    const std::function<bool(std::string_view)>& receive) {
  Inflater inflater;
  z_stream& stream = inflater.stream;
  std::array<char, 16384> piece = {};
  std::size_t given = 0;
  for (;;) {
    if (stream.avail_in == 0) {
      // avail_in is 32 bits wide, a body need not be.
      const std::size_t count =
          std::min<std::size_t>(packed.size() - given, std::numeric_limits<uInt>::max());
      if (count == 0) {
        return GunzipResult::kCut;
      }
      stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data() + given));
      stream.avail_in = static_cast<uInt>(count);
      given += count;
    }
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    const int result = inflate(&stream, Z_NO_FLUSH);
    const std::size_t count = piece.size() - stream.avail_out;
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
      return GunzipResult::kBad;
    }
    if (count > 0 && !receive({piece.data(), count})) {
      return GunzipResult::kRefused;
    }
    if (result == Z_STREAM_END) {
      if (stream.avail_in == 0 && given == packed.size()) {
        return GunzipResult::kDone;
      }
      inflateReset(&stream);
    }
  }
}
