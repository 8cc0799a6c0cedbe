#include "TarWriter.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cinttypes>
#include <new>

#include "Log.h"

namespace lumfilesys {

namespace {

constexpr char kLogPath[] = "BaseAPI/LumFileSys/src/TarWriter";

// Smaller files are read at once, so that advice on reading ahead is not worth its call.
constexpr off_t kReadAheadBytes = off_t{256} * 1024;

}  // namespace

TarWriter::TarWriter(int fd)
    : m_gzip(fd), m_archive(archive_write_new()), m_entry(archive_entry_new()) {
  // GNU's format, not pax: it takes names as bytes, where pax wants them convertible to UTF-8 from
  // the locale's encoding.
  const bool ready =
      m_archive != nullptr && m_entry != nullptr &&
      archive_write_set_format_gnutar(m_archive) == ARCHIVE_OK &&
      archive_write_add_filter_none(m_archive) == ARCHIVE_OK &&
      // No blocks to fill: everything goes straight on to the compressor.
      archive_write_set_bytes_per_block(m_archive, 0) == ARCHIVE_OK &&
      archive_write_open2(
          m_archive, this, nullptr,
          // A failure is kept for Check() and not reported here: libarchive 3.6 never releases the
          // client's state of an archive that has failed.
          [](archive*, void* self, const void* data, std::size_t size) -> la_ssize_t {
            auto* const writer = static_cast<TarWriter*>(self);
            if (writer->m_error != 0) {
              return -1;
            }
            writer->m_error = writer->m_gzip.Write(data, size);
            return static_cast<la_ssize_t>(size);
          },
          nullptr, nullptr) == ARCHIVE_OK;
  if (!ready) {
    archive_entry_free(m_entry);
    archive_write_free(m_archive);
    throw std::bad_alloc();
  }
}

TarWriter::~TarWriter() {
  archive_entry_free(m_entry);
  // What an unfinished archive would still write to end itself is refused, at the first byte.
  m_error = ECANCELED;
  archive_write_free(m_archive);
}

void TarWriter::AddFile(const std::string& name, const Descriptor& file,
                        const struct stat& status) {
  StartEntry(name, status);
  archive_entry_set_size(m_entry, status.st_size);
  WriteHeader();
  if (status.st_size > kReadAheadBytes) {
    (void)posix_fadvise(file.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  off_t left = status.st_size;
  ssize_t got = 0;
  do {
    char* const room = m_gzip.Room();
    const auto roomBytes = static_cast<off_t>(m_gzip.RoomBytes());
    // The byte behind the last one tells whether the file has grown.
    got =
        read(file.Get(), room, static_cast<std::size_t>(left <= roomBytes ? left + 1 : roomBytes));
    if (got < 0 && errno != EINTR) {
      Fail(errno);
    }
    if (got > left) {
      LUM_LOG(kLogWarning, "AddFile", "%s has grown and is packed to its first %jd bytes",
              name.c_str(), static_cast<std::intmax_t>(status.st_size));
    }
    const auto taken = static_cast<ssize_t>(std::min(static_cast<off_t>(got), left));
    if (taken > 0) {
      const la_ssize_t written =
          archive_write_data(m_archive, room, static_cast<std::size_t>(taken));
      Check(written == taken ? ARCHIVE_OK : ARCHIVE_FATAL);
      left -= taken;
    }
  } while (got < 0 || (got > 0 && left > 0));
  if (left > 0) {
    // The header has told the size; libarchive fills the entry up when it is finished.
    LUM_LOG(kLogWarning, "AddFile", "%s has shrunk and is filled up with %jd zero bytes",
            name.c_str(), static_cast<std::intmax_t>(left));
  }
  Check(archive_write_finish_entry(m_archive));
}

void TarWriter::AddDirectory(const std::string& name, const struct stat& status) {
  // libarchive would end the name in a slash itself, but loses memory where it can get none for it.
  StartEntry(name + '/', status);
  WriteHeader();
}

void TarWriter::AddLink(const std::string& name, const char* target, const struct stat& status) {
  StartEntry(name, status);
  archive_entry_copy_symlink(m_entry, target);
  WriteHeader();
}

void TarWriter::Finish() {
  Check(archive_write_close(m_archive));
  const int error = m_gzip.Finish();
  if (error != 0) {
    Fail(error);
  }
}

// Owners go by number: a look-up of names for each member would ask the name service 20,000 times.
void TarWriter::StartEntry(const std::string& name, const struct stat& status) {
  archive_entry_clear(m_entry);
  archive_entry_copy_pathname(m_entry, name.c_str());
  archive_entry_set_mode(m_entry, status.st_mode);
  archive_entry_set_uid(m_entry, status.st_uid);
  archive_entry_set_gid(m_entry, status.st_gid);
  archive_entry_set_mtime(m_entry, status.st_mtim.tv_sec, 0);
}

void TarWriter::WriteHeader() {
  Check(archive_write_header(m_archive, m_entry));
}

void TarWriter::Check(int result) {
  if (m_error != 0) {
    Fail(m_error);
  }
  if (result != ARCHIVE_OK) {
    const int error = archive_errno(m_archive);
    Fail(error > 0 ? error : EIO);
  }
}

}  // namespace lumfilesys
