// Archives over system calls that fail on cue: whatever goes wrong, and wherever, the operation
// says so, leaves nothing behind and an older archive as it was.

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "LumFileSys.h"
#include "UnpackedArchive.h"
#include "support/Alloc.h"
#include "support/Files.h"
#include "support/ProcessState.h"

struct archive;

extern "C" {
ssize_t __real_read(int fd, void* data, std::size_t size);
ssize_t __real_write(int fd, const void* data, std::size_t size);
int __real_close(int fd);
int __real_openat(int directory, const char* name, int flags, ...);
int __real_renameat(int from, const char* name, int to, const char* newName);
ssize_t __real_getrandom(void* data, std::size_t size, unsigned flags);
dirent* __real_readdir(DIR* stream);
DIR* __real_fdopendir(int fd);
archive* __real_archive_write_new();

ssize_t __wrap_read(int fd, void* data, std::size_t size);
ssize_t __wrap_write(int fd, const void* data, std::size_t size);
int __wrap_close(int fd);
int __wrap_openat(int directory, const char* name, int flags, ...);
int __wrap_renameat(int from, const char* name, int to, const char* newName);
ssize_t __wrap_getrandom(void* data, std::size_t size, unsigned flags);
dirent* __wrap_readdir(DIR* stream);
DIR* __wrap_fdopendir(int fd);
archive* __wrap_archive_write_new();
}

namespace {

using lumtest::NamesIn;
using lumtest::ReadFile;
using lumtest::TempDir;
using lumtest::UnpackedArchive;
using ::testing::ElementsAre;
using ::testing::StartsWith;

// What the system calls of the library do in place of their own work; an empty one does that.
struct Hooks {
  std::function<ssize_t(int, void*, std::size_t)> read;
  std::function<ssize_t(int, const void*, std::size_t)> write;
  std::function<int(int)> close;
  std::function<void(const char*)> beforeOpenat;
  std::function<int()> renameat;
  std::function<ssize_t(void*)> getrandom;
  std::function<dirent*(dirent*)> afterReaddir;
  std::function<DIR*()> fdopendir;
  bool noArchive = false;
};

Hooks* g_hooks = nullptr;

int FailWith(int error) {
  errno = error;
  return -1;
}

std::string Noise(std::size_t size) {
  std::mt19937 random(static_cast<unsigned>(size));
  std::string noise(size, '\0');
  for (char& byte : noise) {
    byte = static_cast<char>(random());
  }
  return noise;
}

// A directory "d" with files that do not compress, and an older archive of it.
class LumArchiveFault : public ::testing::Test {
 protected:
  LumArchiveFault() {
    m_dir.MakeDir("d");
    m_dir.MakeDir("d/sub");
    m_dir.Write("d/big", Noise(900000));
    m_dir.Write("d/sub/small", "small");
    m_dir.Write("d/z", "last");
    m_dir.Write("d.tar.gz", "older archive");
    m_descriptors = lumtest::OpenDescriptors();
  }

  // What packing "d" with the hooks leads to: 0 or errno.
  int Pack() {
    g_hooks = &m_hooks;
    errno = 0;
    const int result = LumCompressAndDeCompress::CompressFilePath(m_path.c_str());
    const int error = errno;
    g_hooks = nullptr;
    EXPECT_TRUE(result == 0 || result == -1);
    return result == 0 ? 0 : error;
  }

  void ExpectNothingChanged() {
    EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d", "d.tar.gz"));
    EXPECT_EQ(ReadFile(m_dir.Path("d.tar.gz")), "older archive");
    EXPECT_EQ(lumtest::OpenDescriptors(), m_descriptors);
  }

  void ExpectWholeArchive() {
    EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d", "d.tar.gz"));
    const UnpackedArchive archive(m_dir.Path("d.tar.gz"));
    lumtest::ExpectSameTree(m_dir.Path("d"), archive.Path("d"));
    EXPECT_EQ(lumtest::OpenDescriptors(), m_descriptors);
  }

  TempDir m_dir;
  const std::string m_path = m_dir.Path("d");
  Hooks m_hooks;
  std::size_t m_descriptors = 0;
};

TEST_F(LumArchiveFault, EveryWriteMayFail) {
  for (const int error : {ENOSPC, EIO, EDQUOT}) {
    int writes = 0;
    for (int failing = 1;; ++failing) {
      writes = 0;
      m_hooks.write = [&](int fd, const void* data, std::size_t size) {
        return ++writes == failing ? FailWith(error) : __real_write(fd, data, size);
      };
      const int result = Pack();
      if (writes < failing) {
        EXPECT_EQ(result, 0);
        break;
      }
      EXPECT_EQ(result, error) << failing;
      ExpectNothingChanged();
    }
    EXPECT_GE(writes, 4);  // 900,000 bytes that do not compress, 256 KiB at a time
    ExpectWholeArchive();
    m_dir.Write("d.tar.gz", "older archive");
  }
}

TEST_F(LumArchiveFault, EveryReadMayFail) {
  int reads = 0;
  for (int failing = 1;; ++failing) {
    reads = 0;
    m_hooks.read = [&](int fd, void* data, std::size_t size) {
      return ++reads == failing ? FailWith(EIO) : __real_read(fd, data, size);
    };
    const int result = Pack();
    if (reads < failing) {
      EXPECT_EQ(result, 0);
      break;
    }
    EXPECT_EQ(result, EIO) << failing;
    ExpectNothingChanged();
  }
  EXPECT_GE(reads, 6);
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, EveryOpenMayFail) {
  int opens = 0;
  int failing = 1;
  for (;; ++failing) {
    opens = 0;
    bool failed = false;
    m_hooks.beforeOpenat = [&](const char*) {
      if (++opens == failing) {
        failed = true;
        throw EMFILE;
      }
    };
    const int result = Pack();
    if (!failed) {
      EXPECT_EQ(result, 0);
      break;
    }
    EXPECT_EQ(result, EMFILE) << failing;
    ExpectNothingChanged();
  }
  EXPECT_EQ(failing, 7);  // the archive, three files, "sub" and the way back from it, then none
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, ShortAndInterruptedCallsAreGoneOnWith) {
  int calls = 0;
  m_hooks.write = [&](int fd, const void* data, std::size_t size) {
    return ++calls % 3 == 0 ? FailWith(EINTR)
                            : __real_write(fd, data, std::min<std::size_t>(size, 10007));
  };
  m_hooks.read = [&](int fd, void* data, std::size_t size) {
    return ++calls % 3 == 0 ? FailWith(EINTR)
                            : __real_read(fd, data, std::min<std::size_t>(size, 7001));
  };
  EXPECT_EQ(Pack(), 0);
  ExpectWholeArchive();
  EXPECT_GT(calls, 300);
}

TEST_F(LumArchiveFault, DiskThatIsFullOnlyWhenTheFileIsClosed) {
  m_hooks.close = [](int fd) {
    const bool forWriting = (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY;
    const int result = __real_close(fd);
    return forWriting ? FailWith(ENOSPC) : result;
  };
  EXPECT_EQ(Pack(), ENOSPC);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, RenamingFails) {
  m_hooks.renameat = [] { return FailWith(EPERM); };
  EXPECT_EQ(Pack(), EPERM);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, FileThatShrinks) {
  int reads = 0;
  m_hooks.read = [&](int fd, void* data, std::size_t size) {
    if (++reads == 2) {
      EXPECT_EQ(truncate(m_dir.Path("d/big").c_str(), 300000), 0);
    }
    return __real_read(fd, data, size);
  };
  EXPECT_EQ(Pack(), EIO);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, FileThatGrowsIsPackedToTheSizeItHad) {
  bool first = true;
  m_hooks.read = [&](int fd, void* data, std::size_t size) {
    if (first) {
      first = false;
      lumtest::AppendFile(m_dir.Path("d/big"), Noise(500000));
    }
    return __real_read(fd, data, size);
  };
  EXPECT_EQ(Pack(), 0);
  const UnpackedArchive archive(m_dir.Path("d.tar.gz"));
  EXPECT_TRUE(ReadFile(archive.Path("d/big")) == Noise(900000));
  EXPECT_EQ(ReadFile(archive.Path("d/z")), "last");
}

TEST_F(LumArchiveFault, FileThatVanishesAfterItWasListed) {
  m_hooks.beforeOpenat = [&](const char* name) {
    if (std::strcmp(name, "z") == 0) {
      EXPECT_EQ(unlink(m_dir.Path("d/z").c_str()), 0);
    }
  };
  EXPECT_EQ(Pack(), ENOENT);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, FileThatBecomesAPipeIsPassedOver) {
  m_hooks.beforeOpenat = [&](const char* name) {
    if (std::strcmp(name, "z") == 0) {
      EXPECT_EQ(unlink(m_dir.Path("d/z").c_str()), 0);
      EXPECT_EQ(mkfifo(m_dir.Path("d/z").c_str(), 0600), 0);
    }
  };
  EXPECT_EQ(Pack(), 0);
  EXPECT_THAT(UnpackedArchive(m_dir.Path("d.tar.gz")).Names(),
              ElementsAre("d/", "d/big", "d/sub/", "d/sub/small"));
}

TEST_F(LumArchiveFault, FileThatBecomesALinkIsNotFollowed) {
  m_hooks.beforeOpenat = [&](const char* name) {
    if (std::strcmp(name, "z") == 0) {
      EXPECT_EQ(unlink(m_dir.Path("d/z").c_str()), 0);
      EXPECT_EQ(symlink("/etc/passwd", m_dir.Path("d/z").c_str()), 0);
    }
  };
  EXPECT_EQ(Pack(), ELOOP);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, DirectoryThatIsMovedAwayWhileItIsPacked) {
  m_dir.MakeDir("d/elsewhere");
  m_hooks.beforeOpenat = [&](const char* name) {
    if (std::strcmp(name, "small") == 0) {
      EXPECT_EQ(rename(m_dir.Path("d/sub").c_str(), m_dir.Path("d/elsewhere/sub").c_str()), 0);
    }
  };
  EXPECT_EQ(Pack(), ESTALE);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, FileSystemThatDoesNotTellTypes) {
  EXPECT_EQ(symlink("big", m_dir.Path("d/link").c_str()), 0);
  EXPECT_EQ(mkfifo(m_dir.Path("d/pipe").c_str(), 0600), 0);
  m_hooks.afterReaddir = [](dirent* entry) {
    if (entry != nullptr) {
      entry->d_type = DT_UNKNOWN;
    }
    return entry;
  };
  EXPECT_EQ(Pack(), 0);
  const UnpackedArchive archive(m_dir.Path("d.tar.gz"));
  EXPECT_THAT(archive.Names(),
              ElementsAre("d/", "d/big", "d/link", "d/sub/", "d/sub/small", "d/z"));
  EXPECT_TRUE(ReadFile(archive.Path("d/link")) == Noise(900000));
}

TEST_F(LumArchiveFault, DirectoryThatCannotBeListed) {
  m_hooks.fdopendir = []() -> DIR* {
    errno = ENOMEM;
    return nullptr;
  };
  EXPECT_EQ(Pack(), ENOMEM);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, DirectoryWhoseListBreaksOff) {
  int entries = 0;
  m_hooks.afterReaddir = [&](dirent* entry) -> dirent* {
    if (++entries < 3) {
      return entry;
    }
    errno = EIO;
    return nullptr;
  };
  EXPECT_EQ(Pack(), EIO);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, TemporaryNameThatIsTakenIsLeftAlone) {
  int calls = 0;
  m_hooks.getrandom = [&](void* data) {
    const std::uint64_t number = ++calls <= 3 ? 0xabcU : 0xdefU;
    std::memcpy(data, &number, sizeof number);
    return static_cast<ssize_t>(sizeof number);
  };
  const std::string taken = m_dir.Write(".lum-archive-0000000000000abc", "somebody else's");
  EXPECT_EQ(Pack(), 0);
  EXPECT_EQ(calls, 4);
  EXPECT_EQ(ReadFile(taken), "somebody else's");
  EXPECT_EQ(unlink(taken.c_str()), 0);
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, NoRandomNumber) {
  m_hooks.getrandom = [](void*) { return FailWith(ENOSYS); };
  EXPECT_EQ(Pack(), ENOSYS);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, ArchiveIsHiddenUntilItIsWhole) {
  m_hooks.renameat = [&] {
    const std::vector<std::string> names = NamesIn(m_dir.Path());
    EXPECT_THAT(names, ElementsAre(StartsWith(".lum-archive-"), "d", "d.tar.gz"));
    EXPECT_EQ(ReadFile(m_dir.Path("d.tar.gz")), "older archive");
    lumtest::ExpectSameTree(m_dir.Path("d"), UnpackedArchive(m_dir.Path(names[0])).Path("d"));
    return 1;
  };
  EXPECT_EQ(Pack(), 0);
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, MemoryRunsOutAtAnyPoint) {
  std::size_t nth = 0;
  bool failed = true;
  while (failed) {
    lumtest::FailNextNew(++nth);
    const int result = Pack();
    failed = lumtest::NewHasFailed();
    lumtest::FailNextNew(0);
    EXPECT_EQ(result, failed ? ENOMEM : 0) << nth;
    if (failed) {
      ExpectNothingChanged();
    }
  }
  EXPECT_GT(nth, 5U);
  ExpectWholeArchive();

  m_dir.Write("d.tar.gz", "older archive");
  m_hooks.noArchive = true;  // the tar writer has none either
  EXPECT_EQ(Pack(), ENOMEM);
  ExpectNothingChanged();
}

TEST(LumGzipCompressFault, MemoryRunsOut) {
  char out[100];
  lumtest::FailNextNew(1);
  const int result = LumCompressAndDeCompress::GzipCompress("text", 4, out, sizeof out);
  const bool failed = lumtest::NewHasFailed();
  lumtest::FailNextNew(0);
  EXPECT_TRUE(failed);
  EXPECT_LE(result, 0);
  EXPECT_GT(LumCompressAndDeCompress::GzipCompress("text", 4, out, sizeof out), 0);
}

}  // namespace

extern "C" {

ssize_t __wrap_read(int fd, void* data, std::size_t size) {
  return g_hooks != nullptr && g_hooks->read ? g_hooks->read(fd, data, size)
                                             : __real_read(fd, data, size);
}

ssize_t __wrap_write(int fd, const void* data, std::size_t size) {
  return g_hooks != nullptr && g_hooks->write ? g_hooks->write(fd, data, size)
                                              : __real_write(fd, data, size);
}

int __wrap_close(int fd) {
  return g_hooks != nullptr && g_hooks->close ? g_hooks->close(fd) : __real_close(fd);
}

int __wrap_openat(int directory, const char* name, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (g_hooks != nullptr && g_hooks->beforeOpenat) {
    try {
      g_hooks->beforeOpenat(name);
    } catch (int error) {
      return FailWith(error);
    }
  }
  return __real_openat(directory, name, flags, mode);
}

// A hook that gives 1 has only looked.
int __wrap_renameat(int from, const char* name, int to, const char* newName) {
  const int result = g_hooks != nullptr && g_hooks->renameat ? g_hooks->renameat() : 1;
  return result == 1 ? __real_renameat(from, name, to, newName) : result;
}

ssize_t __wrap_getrandom(void* data, std::size_t size, unsigned flags) {
  return g_hooks != nullptr && g_hooks->getrandom ? g_hooks->getrandom(data)
                                                  : __real_getrandom(data, size, flags);
}

dirent* __wrap_readdir(DIR* stream) {
  dirent* const entry = __real_readdir(stream);
  return g_hooks != nullptr && g_hooks->afterReaddir ? g_hooks->afterReaddir(entry) : entry;
}

DIR* __wrap_fdopendir(int fd) {
  return g_hooks != nullptr && g_hooks->fdopendir ? g_hooks->fdopendir() : __real_fdopendir(fd);
}

archive* __wrap_archive_write_new() {
  return g_hooks != nullptr && g_hooks->noArchive ? nullptr : __real_archive_write_new();
}

}  // extern "C"
