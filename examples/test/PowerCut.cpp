// Part of a program whose power is cut: at write number LUM_POWER_CUT to a file at a place of its
// own, as SQLite writes, all that was written since its file's last fdatasync is undone, and the
// program ends with status 99.

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

namespace {

struct Written {
  int file;
  off64_t offset;
  std::string before;
  off64_t sizeBefore;
};

std::mutex g_mutex;
std::vector<Written> g_unsynced;
long g_writes = 0;

ssize_t Write(int file, const void* data, std::size_t size, off64_t offset) {
  return syscall(SYS_pwrite64, file, data, size, offset);
}

[[noreturn]] void Cut() {
  for (; !g_unsynced.empty(); g_unsynced.pop_back()) {
    const Written& last = g_unsynced.back();
    if (Write(last.file, last.before.data(), last.before.size(), last.offset) < 0 ||
        ftruncate64(last.file, last.sizeBefore) != 0) {
      _exit(98);
    }
  }
  _exit(99);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) ssize_t pwrite64(int file, const void* data,
                                                        std::size_t size, off64_t offset) {
  static const char* cut = std::getenv("LUM_POWER_CUT");
  const std::lock_guard<std::mutex> lock(g_mutex);
  std::string before(size, '\0');
  const ssize_t got = pread64(file, &before[0], size, offset);
  before.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  g_unsynced.push_back({file, offset, before, lseek64(file, 0, SEEK_END)});
  if (cut != nullptr && ++g_writes == std::atol(cut)) {
    Cut();
  }
  return Write(file, data, size, offset);
}

__attribute__((visibility("default"))) int fdatasync(int file) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  for (std::size_t i = g_unsynced.size(); i-- > 0;) {
    if (g_unsynced[i].file == file) {
      g_unsynced.erase(g_unsynced.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
  return static_cast<int>(syscall(SYS_fdatasync, file));
}

}  // extern "C"
