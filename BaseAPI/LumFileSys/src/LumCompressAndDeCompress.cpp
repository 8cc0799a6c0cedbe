// Compression: one-shot in memory, and archives.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_set>
#include <vector>

#include "Deflate.h"
#include "LumFileSys.h"
#include "PendingFile.h"
#include "Posix.h"
#include "TarWriter.h"
#include "TreePacker.h"

using namespace lumfilesys;

namespace {

constexpr char kExtension[] = ".tar.gz";

// A null argument is refused like an empty one.
std::string Text(const char* argument) {
  return argument != nullptr ? argument : "";
}

// The name that a path's file has in an archive. "." and ".." have none of their own: the directory
// that they mean is asked for its name.
std::string BaseName(const std::string& path) {
  const std::size_t last = path.find_last_not_of('/');
  if (last == std::string::npos) {
    return ".";  // the root
  }
  const std::size_t first = path.rfind('/', last) + 1;  // 0 where there is no slash: npos + 1
  std::string name = path.substr(first, last - first + 1);
  if (name == "." || name == "..") {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                           &std::free);
    if (real == nullptr) {
      Fail(errno);
    }
    return BaseName(real.get());
  }
  return name;
}

// What a path of the caller's leads to.
struct Source {
  Descriptor file;
  struct stat status;
  std::string name;  // in the archive
};

Source OpenSource(const std::string& path) {
  // O_NONBLOCK keeps a pipe without a writer from holding the caller up.
  Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  const struct stat status = StatusOf(file);
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    Fail(EINVAL);
  }
  return {std::move(file), status, BaseName(path)};
}

// An archive in the making: gone with this object unless it is finished.
class Archive {
 public:
  explicit Archive(const std::string& base) : m_file(base + kExtension), m_tar(m_file.Fd()) {}

  void Add(Source source) {
    if (S_ISDIR(source.status.st_mode)) {
      TreePacker(m_tar, m_file).Pack(std::move(source.file), source.name);
    } else {
      m_tar.AddFile(source.name, source.file, source.status);
    }
  }

  void Finish() {
    m_tar.Finish();
    m_file.Commit();
  }

 private:
  PendingFile m_file;
  TarWriter m_tar;
};

void PackOne(const std::string& path, bool isDirectory) {
  Source source = OpenSource(path);
  if (S_ISDIR(source.status.st_mode) != isDirectory) {
    Fail(isDirectory ? ENOTDIR : EISDIR);
  }
  Archive archive(path);
  archive.Add(std::move(source));
  archive.Finish();
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    if (end > start) {
      lines.push_back(text.substr(start, end - start));
    }
    start = end + 1;
  }
  return lines;
}

void PackGroup(const std::vector<std::string>& paths, const std::string& base) {
  if (paths.empty() || base.empty()) {
    Fail(EINVAL);
  }
  std::unordered_set<std::string> names;
  for (const std::string& path : paths) {
    if (!names.insert(BaseName(path)).second) {
      Fail(EEXIST);
    }
  }
  Archive archive(base);
  for (const std::string& path : paths) {
    archive.Add(OpenSource(path));
  }
  archive.Finish();
}

// A pointer and its release apart: the pointer has no destructor, so that a static object's may
// still compress when those of the main thread's own objects have run.
thread_local isal_zstream* t_stream = nullptr;

struct StreamRelease {
  ~StreamRelease() {
    delete t_stream;
    t_stream = nullptr;
  }
};

// Null when memory runs out. Never zeroed: that would cost more than compressing a small document.
isal_zstream* StreamOfThisThread() {
  if (t_stream == nullptr) {
    static thread_local StreamRelease t_release;
    t_stream = new (std::nothrow) isal_zstream;
  }
  return t_stream;
}

#ifdef __aarch64__
// ISA-L 2.30 compares eight bytes at a time on AArch64, up to seven beyond the end of its input.
// What lies on the input's last page cannot do harm; the page after it may not be there.
constexpr bool kReadsBeyondTheEnd = true;
#else
constexpr bool kReadsBeyondTheEnd = false;
#endif
constexpr std::size_t kBeyond = 8;

bool MayLeaveItsPage(const char* source, int length) {
  constexpr std::uintptr_t kSmallestPage = 4096;
  const auto end = reinterpret_cast<std::uintptr_t>(source) + static_cast<std::uintptr_t>(length);
  return length > 0 && (end - 1) % kSmallestPage + kBeyond >= kSmallestPage;
}

// Runs `pack` and turns what it throws into the result of a public operation.
template <typename Pack>
int ResultOf(Pack pack) {
  try {
    pack();
    return 0;
  } catch (const Failure& failure) {
    errno = failure.error;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  }
  return -1;
}

}  // namespace

int LumCompressAndDeCompress::GzipCompress(const char* source, int sourceLength, char* destination,
                                           int destinationLength) {
  if (source == nullptr || destination == nullptr || sourceLength < 0 || destinationLength < 0) {
    return -1;
  }
  isal_zstream* const kept = StreamOfThisThread();
  if (kept == nullptr) {
    return -1;
  }
  std::unique_ptr<char[]> copy;
  if (kReadsBeyondTheEnd && MayLeaveItsPage(source, sourceLength)) {
    const auto length = static_cast<std::size_t>(sourceLength);
    copy.reset(new (std::nothrow) char[length + kBeyond]);
    if (copy == nullptr) {
      return -1;
    }
    std::memcpy(copy.get(), source, length);
    source = copy.get();
  }
  isal_zstream& stream = *kept;
  isal_deflate_stateless_init(&stream);
  stream.hist_bits = 0;  // the largest window; the call above leaves it as the memory was
  stream.level = 1;      // its tables find room in the stream itself
  stream.gzip_flag = IGZIP_GZIP;
  stream.end_of_stream = 1;
  stream.next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(source));
  stream.avail_in = static_cast<std::uint32_t>(sourceLength);
  stream.next_out = reinterpret_cast<std::uint8_t*>(destination);
  stream.avail_out = static_cast<std::uint32_t>(destinationLength);
  if (DeflateAtOnce(stream) != COMP_OK) {
    return -1;
  }
  return static_cast<int>(stream.total_out);
}

int LumCompressAndDeCompress::CompressFile(const char* filePath) {
  return ResultOf([&] { PackOne(Text(filePath), false); });
}

int LumCompressAndDeCompress::CompressFilePath(const char* dirPath) {
  return ResultOf([&] { PackOne(Text(dirPath), true); });
}

int LumCompressAndDeCompress::CompressFileGroup(const char* fileGroup, const char* archiveBase) {
  return ResultOf([&] { PackGroup(Lines(Text(fileGroup)), Text(archiveBase)); });
}
