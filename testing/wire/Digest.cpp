// SHA-256 over OpenSSL's EVP interface, and the byte pattern of generated bodies.

#include "wire/Digest.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace lumtest {

struct Sha256::Context {
  Context() : digest(EVP_MD_CTX_new()) { Start(); }
  ~Context() { EVP_MD_CTX_free(digest); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  void Start() {
    if (digest == nullptr || EVP_DigestInit_ex(digest, EVP_sha256(), nullptr) != 1) {
      throw std::runtime_error("SHA-256 is not available");
    }
  }

  EVP_MD_CTX* digest;
};

Sha256::Sha256() : m_context(new Context) {}
Sha256::~Sha256() = default;
Sha256::Sha256(Sha256&&) noexcept = default;
Sha256& Sha256::operator=(Sha256&&) noexcept = default;

void Sha256::Update(const char* bytes, std::size_t size) {
  if (EVP_DigestUpdate(m_context->digest, bytes, size) != 1) {
    throw std::runtime_error("SHA-256 failed");
  }
}

std::string Sha256::Finish() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned int size = 0;
  if (EVP_DigestFinal_ex(m_context->digest, digest.data(), &size) != 1) {
    throw std::runtime_error("SHA-256 failed");
  }
  m_context->Start();
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < size; ++i) {
    text += kDigits[digest[i] >> 4];
    text += kDigits[digest[i] & 15];
  }
  return text;
}

std::string Sha256Hex(const std::string& bytes) {
  Sha256 digest;
  digest.Update(bytes.data(), bytes.size());
  return digest.Finish();
}

std::string Sha256OfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot open " + path);
  }
  Sha256 digest;
  std::vector<char> piece(1 << 20);
  while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) || file.gcount() > 0) {
    digest.Update(piece.data(), static_cast<std::size_t>(file.gcount()));
  }
  if (file.bad()) {
    throw std::runtime_error("cannot read " + path);
  }
  return digest.Finish();
}

std::string GeneratedBytes(std::uint64_t offset, std::size_t size) {
  std::string bytes(size, '\0');
  const std::size_t first = std::min(size, kGeneratedPeriod);
  for (std::size_t i = 0; i < first; ++i) {
    bytes[i] = static_cast<char>((offset + i) % kGeneratedPeriod);
  }
  // What is there, a whole number of periods, is copied behind itself until all is there.
  for (std::size_t there = first; there < size; there *= 2) {
    std::memcpy(&bytes[there], bytes.data(), std::min(there, size - there));
  }
  return bytes;
}

std::string GeneratedSha256(std::uint64_t size) {
  const std::string block = GeneratedBytes(0, kGeneratedPeriod * 4096);
  Sha256 digest;
  while (size > 0) {
    const std::size_t piece = static_cast<std::size_t>(std::min<std::uint64_t>(size, block.size()));
    digest.Update(block.data(), piece);
    size -= piece;
  }
  return digest.Finish();
}

}  // namespace lumtest
