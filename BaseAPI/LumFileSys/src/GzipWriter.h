// A stream that compresses what is written to it into one gzip member in a file.

#ifndef LUM_FILE_SYS_GZIP_WRITER_H
#define LUM_FILE_SYS_GZIP_WRITER_H

#include <isa-l/igzip_lib.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace lumfilesys {

// Thread safety: one thread at a time.
class GzipWriter {
 public:
  // Writes to `fd`, which stays the caller's.
  explicit GzipWriter(int fd);

  // Where the next data is best put before Write gets it: there it need not be copied. The room is
  // at least one byte, and another one that Write does not take lies behind it.
  char* Room() const { return reinterpret_cast<char*>(m_state->input) + m_waiting; }
  std::size_t RoomBytes() const { return kBlockBytes - m_waiting; }

  // Takes `size` bytes at `data`; they are compressed when enough has come together. Returns 0 or
  // an errno value; nothing is thrown, since the tar writer's C code calls this.
  int Write(const void* data, std::size_t size) noexcept;

  // Ends the member. Returns 0 or an errno value.
  int Finish() noexcept;

 private:
  int Compress(bool last) noexcept;
  int Flush() noexcept;

  // The compressor runs a quarter faster on blocks like these than on tar's 512 bytes.
  static constexpr std::size_t kBlockBytes = std::size_t{256} * 1024;

  struct State {
    isal_zstream stream;
    std::uint8_t level[ISAL_DEF_LVL1_DEFAULT];
    std::uint8_t input[kBlockBytes + 1];
    std::uint8_t output[kBlockBytes];
  };

  int m_fd;
  std::size_t m_waiting = 0;  // bytes of the input block that are taken
  std::unique_ptr<State> m_state;
};

}  // namespace lumfilesys

#endif  // LUM_FILE_SYS_GZIP_WRITER_H
