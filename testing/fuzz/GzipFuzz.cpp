// One-shot compression: whatever fits unpacks to its source, and what must fit does.
//
// Input: how much room is missing at the end of the destination (2 bytes), how often the text is
// repeated, the text.

#include <LumFileSys.h>
#include <zlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Fuzz.h"

namespace {

// Unpacks exactly one gzip member, which holds `size` bytes.
std::string Unpack(std::vector<char>& packed, std::size_t packedSize, std::size_t size) {
  z_stream stream = {};
  LUM_REQUIRE(inflateInit2(&stream, 16 + MAX_WBITS) == Z_OK);
  std::string text(size + 1, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_in = static_cast<uInt>(packedSize);
  stream.next_out = reinterpret_cast<Bytef*>(text.data());
  stream.avail_out = static_cast<uInt>(text.size());
  LUM_REQUIRE(inflate(&stream, Z_FINISH) == Z_STREAM_END);
  LUM_REQUIRE(stream.avail_in == 0 && stream.total_out == size);
  LUM_REQUIRE(inflateEnd(&stream) == Z_OK);
  text.resize(size);
  return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumtest::FuzzInput input(data, size);
  const std::size_t missing = input.Number();
  const unsigned times = 1 + input.Byte();
  const std::string once = input.Rest();
  std::string text;
  for (unsigned i = 0; i < times; ++i) {
    text += once;
  }
  const std::size_t enough = text.size() + 18 + 5 * ((text.size() + 65534) / 65535) + 2;
  const std::size_t room = enough - std::min(enough, missing);
  // Copies of their own sizes, so that sanitizers see accesses behind their ends.
  const std::vector<char> source(text.begin(), text.end());
  std::vector<char> packed(room);
  char none = 0;
  const int result = LumCompressAndDeCompress::GzipCompress(
      source.empty() ? &none : source.data(), static_cast<int>(source.size()),
      packed.empty() ? &none : packed.data(), static_cast<int>(packed.size()));
  LUM_REQUIRE(result == -1 || (result > 0 && static_cast<std::size_t>(result) <= room));
  LUM_REQUIRE(result > 0 || missing > 0);
  if (result > 0) {
    LUM_REQUIRE(Unpack(packed, static_cast<std::size_t>(result), text.size()) == text);
  }
  return 0;
}
