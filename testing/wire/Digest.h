// SHA-256, and the endless byte pattern that stands in for large bodies.

#ifndef LUM_TESTING_WIRE_DIGEST_H
#define LUM_TESTING_WIRE_DIGEST_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace lumtest {

// A running SHA-256. Not for use by two threads at once.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(Sha256&&) noexcept;
  Sha256& operator=(Sha256&&) noexcept;

  void Update(const char* bytes, std::size_t size);

  // The digest of everything added since construction, as 64 lower-case hexadecimal digits.
  // Afterwards the object starts anew.
  std::string Finish();

 private:
  struct Context;
  std::unique_ptr<Context> m_context;
};

std::string Sha256Hex(const std::string& bytes);

// The digest of a file's content, read piece by piece. Throws std::runtime_error naming the file.
std::string Sha256OfFile(const std::string& path);

// Bytes `offset` to `offset + size` of the pattern 0, 1, ... 250, 0, 1, ... that generated bodies
// consist of. The period is prime: losing or repeating a buffer of the usual sizes shifts the rest.
constexpr std::size_t kGeneratedPeriod = 251;
std::string GeneratedBytes(std::uint64_t offset, std::size_t size);

// The digest of the pattern's first `size` bytes.
std::string GeneratedSha256(std::uint64_t size);

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_DIGEST_H
