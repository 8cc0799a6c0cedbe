#include "GzipWriter.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Deflate.h"

namespace lumfilesys {

// The state is left uninitialised: zeroing it would cost more than compressing a small file.
GzipWriter::GzipWriter(int fd) : m_fd(fd), m_state(new State) {
  isal_zstream& stream = m_state->stream;
  isal_deflate_init(&stream);
  stream.level = 1;
  stream.level_buf = m_state->level;
  stream.level_buf_size = sizeof m_state->level;
  stream.gzip_flag = IGZIP_GZIP;
  stream.next_out = m_state->output;
  stream.avail_out = sizeof m_state->output;
}

int GzipWriter::Write(const void* data, std::size_t size) noexcept {
  const auto* next = static_cast<const char*>(data);
  while (size > 0) {
    const std::size_t piece = std::min(size, RoomBytes());
    if (next != Room()) {
      std::memcpy(Room(), next, piece);
    }
    next += piece;
    size -= piece;
    m_waiting += piece;
    if (m_waiting == kBlockBytes) {
      const int error = Compress(false);
      if (error != 0) {
        return error;
      }
    }
  }
  return 0;
}

int GzipWriter::Finish() noexcept {
  const int error = Compress(true);
  return error != 0 ? error : Flush();
}

// Compresses what waits in the input block.
int GzipWriter::Compress(bool last) noexcept {
  isal_zstream& stream = m_state->stream;
  stream.next_in = m_state->input;
  stream.avail_in = static_cast<std::uint32_t>(m_waiting);
  stream.end_of_stream = last ? 1 : 0;
  m_waiting = 0;
  do {
    if (Deflate(stream) != COMP_OK) {
      return EIO;
    }
    if (stream.avail_out == 0) {
      const int error = Flush();
      if (error != 0) {
        return error;
      }
    }
  } while (stream.avail_in > 0 || (last && stream.internal_state.state != ZSTATE_END));
  return 0;
}

int GzipWriter::Flush() noexcept {
  isal_zstream& stream = m_state->stream;
  const std::uint8_t* next = m_state->output;
  std::size_t left = sizeof m_state->output - stream.avail_out;
  while (left > 0) {
    const ssize_t written = write(m_fd, next, left);
    if (written >= 0) {
      next += written;
      left -= static_cast<std::size_t>(written);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  stream.next_out = m_state->output;
  stream.avail_out = sizeof m_state->output;
  return 0;
}

}  // namespace lumfilesys
