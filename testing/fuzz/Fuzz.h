// What the fuzz targets share: a reader of the input's bytes, and the check that ends a run.
//
// Each target is a program with LLVMFuzzerTestOneInput. Preset `fuzz` links it with libFuzzer;
// every other build links ReplayMain.cpp, which runs it once over each file of its corpus.

#ifndef LUM_TESTING_FUZZ_FUZZ_H
#define LUM_TESTING_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// The entry of every target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace lumtest {

// Ends the program with a message when `holds` is false, whatever the build.
inline void Require(bool holds, const char* what, const char* file, int line) {
  if (!holds) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
  }
}
#define LUM_REQUIRE(condition) ::lumtest::Require((condition), #condition, __FILE__, __LINE__)

// Takes an input apart from its start. Behind its end numbers are 0 and texts are empty.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size)
      : m_bytes(reinterpret_cast<const char*>(data), size) {}

  bool AtEnd() const { return m_at == m_bytes.size(); }
  std::uint8_t Byte() { return AtEnd() ? 0 : static_cast<std::uint8_t>(m_bytes[m_at++]); }
  // Two bytes, the lower one first.
  unsigned Number() {
    const unsigned low = Byte();
    return low + 256u * Byte();
  }
  // A text that stands behind a byte with its length.
  std::string Text() { return Take(Byte()); }
  std::string Rest() { return Take(m_bytes.size()); }

 private:
  std::string Take(std::size_t size) {
    const std::string text = m_bytes.substr(m_at, size);
    m_at += text.size();
    return text;
  }

  const std::string m_bytes;
  std::size_t m_at = 0;
};

}  // namespace lumtest

#endif  // LUM_TESTING_FUZZ_FUZZ_H
