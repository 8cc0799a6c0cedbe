// Archives over system calls that fail on cue, and over files that change meanwhile: whatever goes
// wrong, and wherever, the operation says so, leaves nothing behind and an older archive as it was.

#include <archive.h>
#include <archive_entry.h>
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <isa-l/igzip_lib.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "LumFileSys.h"
#include "LumLogger.h"
#include "PendingFile.h"
#include "UnpackedArchive.h"
#include "support/Alloc.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/ProcessState.h"

extern "C" {
decltype(::access) __real_access;
decltype(::archive_entry_free) __real_archive_entry_free;
decltype(::archive_entry_new) __real_archive_entry_new;
decltype(::archive_write_add_filter_none) __real_archive_write_add_filter_none;
decltype(::archive_write_close) __real_archive_write_close;
decltype(::archive_write_data) __real_archive_write_data;
decltype(::archive_write_finish_entry) __real_archive_write_finish_entry;
decltype(::archive_write_free) __real_archive_write_free;
decltype(::archive_write_header) __real_archive_write_header;
decltype(::archive_write_new) __real_archive_write_new;
decltype(::archive_write_open2) __real_archive_write_open2;
decltype(::archive_write_set_bytes_per_block) __real_archive_write_set_bytes_per_block;
decltype(::archive_write_set_format_gnutar) __real_archive_write_set_format_gnutar;
decltype(::close) __real_close;
decltype(::fchmod) __real_fchmod;
decltype(::fcntl) __real_fcntl;
decltype(::fdopendir) __real_fdopendir;
decltype(::fstat) __real_fstat;
decltype(::fstatat) __real_fstatat;
decltype(::isal_deflate) __real_isal_deflate;
decltype(::isal_deflate_stateless) __real_isal_deflate_stateless;
decltype(::linkat) __real_linkat;
decltype(::open) __real_open;
decltype(::openat) __real_openat;
decltype(::posix_fadvise) __real_posix_fadvise;
decltype(::read) __real_read;
decltype(::readdir) __real_readdir;
decltype(::readlinkat) __real_readlinkat;
decltype(::renameat) __real_renameat;
decltype(::unlinkat) __real_unlinkat;
decltype(::write) __real_write;
}

namespace {

using lumtest::ExpectSameTree;
using lumtest::FileMode;
using lumtest::NamesIn;
using lumtest::Noise;
using lumtest::ReadFile;
using lumtest::TempDir;
using lumtest::UnpackedArchive;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

const std::string kTarWriter = "BaseAPI/LumFileSys/src/TarWriter AddFile ";

// What the library's system calls lead to.
struct Hooks {
  std::function<void()> beforeEach = [] {};
  std::function<int(const char*, int)> access = __real_access;
  std::function<archive*()> newArchive = __real_archive_write_new;
  std::function<int(int)> close = __real_close;
  std::function<int(int, mode_t)> fchmod = __real_fchmod;
  std::function<int(int, int, long)> fcntl = __real_fcntl;
  std::function<DIR*(int)> fdopendir = __real_fdopendir;
  std::function<int(int, struct stat*)> fstat = __real_fstat;
  std::function<int(int, const char*, struct stat*, int)> fstatat = __real_fstatat;
  std::function<int(int, const char*, int, const char*, int)> linkat = __real_linkat;
  std::function<int(const char*, int, mode_t)> open = __real_open;
  std::function<int(int, const char*, int, mode_t)> openat = __real_openat;
  std::function<int(int, off_t, off_t, int)> fadvise = __real_posix_fadvise;
  std::function<ssize_t(int, void*, std::size_t)> read = __real_read;
  std::function<dirent*(DIR*)> readdir = __real_readdir;
  std::function<ssize_t(int, const char*, char*, std::size_t)> readlinkat = __real_readlinkat;
  std::function<int(int, const char*, int, const char*)> renameat = __real_renameat;
  std::function<ssize_t(int, const void*, std::size_t)> write = __real_write;
};

Hooks* g_hooks = nullptr;

// Whether libarchive refuses a call that was made for this archive.
std::function<bool(archive*)> g_refuses;
int g_liveTarObjects = 0;

// What a call of the compressor returns instead of compressing; COMP_OK: it compresses.
std::function<int(const isal_zstream&)> g_deflateResult;
bool g_deflateLeavesOneByte = false;  // of an input block that is not the last one

int Deflated(isal_zstream* stream, int (*real)(isal_zstream*)) {
  int result = g_deflateResult ? g_deflateResult(*stream) : COMP_OK;
  if (result == COMP_OK) {
    const std::uint32_t left =
        g_deflateLeavesOneByte && stream->avail_in > 1 && stream->end_of_stream == 0 ? 1 : 0;
    stream->avail_in -= left;
    result = real(stream);
    stream->avail_in += left;
  }
  return result;
}

bool Refuses(archive* tar) {
  return g_refuses && g_refuses(tar);
}

template <typename Object>
Object* Taken(Object* object) {
  g_liveTarObjects += object != nullptr ? 1 : 0;
  return object;
}

template <typename Object>
Object* Given(Object* object) {
  g_liveTarObjects -= object != nullptr ? 1 : 0;
  return object;
}

// Lets `hooks` be what the system calls of its scope lead to.
class HooksInScope {
 public:
  explicit HooksInScope(Hooks* hooks) : m_before(std::exchange(g_hooks, hooks)) {}
  ~HooksInScope() { g_hooks = m_before; }
  HooksInScope(const HooksInScope&) = delete;
  HooksInScope& operator=(const HooksInScope&) = delete;

 private:
  Hooks* m_before;
};

// A hook's own system calls are real ones.
template <typename Hook, typename Real, typename... Arguments>
auto Call(Hook Hooks::*hook, Real real, Arguments... arguments) {
  if (g_hooks == nullptr) {
    return real(arguments...);
  }
  Hooks& hooks = *g_hooks;
  const HooksInScope none(nullptr);
  hooks.beforeEach();
  return (hooks.*hook)(arguments...);
}

int FailWith(int error) {
  errno = error;
  return -1;
}

bool IsUnnamed(int flags) {
  return (flags & O_TMPFILE) == O_TMPFILE;
}

bool Makes(int flags) {
  return (flags & O_CREAT) != 0 || IsUnnamed(flags);
}

// Runs `work` in a child process; returns the signal that ended it, or 0 when it exited with 0.
int SignalOfChild(const std::function<void()>& work) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    work();
    std::fflush(stdout);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

std::string UsualPlace() {
  const char* const directory = std::getenv("TMPDIR");
  return directory != nullptr ? directory : "/tmp";
}

// Temporary directories lie in `directory` while this lives.
class TemporaryFilesIn {
 public:
  explicit TemporaryFilesIn(const std::string& directory) : m_before(UsualPlace()) {
    setenv("TMPDIR", directory.c_str(), 1);
  }
  ~TemporaryFilesIn() { setenv("TMPDIR", m_before.c_str(), 1); }
  TemporaryFilesIn(const TemporaryFilesIn&) = delete;
  TemporaryFilesIn& operator=(const TemporaryFilesIn&) = delete;

 private:
  const std::string m_before;
};

bool KnowsUnnamedFiles(const TempDir& dir) {
  const int fd = open(dir.Path().c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600);
  return fd >= 0 && close(fd) == 0;
}

// A directory "d" with files that do not compress, and an older archive of it.
class LumArchiveFault : public ::testing::Test {
 protected:
  LumArchiveFault() {
    m_dir.Write("d/big", Noise(900000));
    m_dir.Write("d/sub/small", "small");
    m_dir.Write("d/z", "last");
    m_dir.Write("d.tar.gz", "older archive");
    m_descriptors = lumtest::OpenDescriptors();
    m_hooks.close = [](int fd) {
      const int result = __real_close(fd);
      EXPECT_TRUE(result == 0 || errno != EBADF) << fd << " is closed, and closed again";
      return result;
    };
    LumLogger::GetInstance().SetSink([this](const LumLogger::Record& record) {
      EXPECT_EQ(record.level, LumLogger::kWarning);
      EXPECT_STREQ(record.tag, " ");
      EXPECT_STREQ(record.detail, "");
      m_log.push_back(std::string(record.file) + ' ' + record.function + ' ' + record.message);
    });
  }
  ~LumArchiveFault() override {
    LumLogger::GetInstance().SetSink(nullptr);
    EXPECT_EQ(g_liveTarObjects, 0);
  }

  // What packing "d", or what `pack` does, with the hooks leads to: 0 or errno.
  int Pack() {
    return Pack([this] { return LumCompressAndDeCompress::CompressFilePath(m_path.c_str()); });
  }
  int Pack(const std::function<int()>& pack) {
    const HooksInScope scope(&m_hooks);
    errno = 0;
    const int result = pack();
    const int error = errno;
    EXPECT_TRUE(result == 0 || result == -1);
    return result == 0 ? 0 : error;
  }

  // Whether the call that is made now is the one whose turn it is to fail; `error` is what comes of
  // that.
  bool Fails(int error) {
    const bool fails = ++m_calls == m_failing;
    if (fails) {
      m_error = errno = error;
    }
    return fails;
  }

  // Lets the calls of `hook` ask Fails().
  template <typename Result, typename... Arguments>
  void MayFail(std::function<Result(Arguments...)> Hooks::*hook, int error) {
    m_hooks.*hook = [this, call = m_hooks.*hook, error](Arguments... arguments) {
      if constexpr (std::is_pointer_v<Result>) {
        return Fails(error) ? nullptr : call(arguments...);
      } else {
        return Fails(error) ? -1 : call(arguments...);
      }
    };
  }

  // Runs `work` before each call of `hook`.
  template <typename Result, typename... Arguments>
  void Before(std::function<Result(Arguments...)> Hooks::*hook, const std::function<void()>& work) {
    m_hooks.*hook = [call = Hooks().*hook, work](Arguments... arguments) {
      work();
      return call(arguments...);
    };
  }

  // Packs again and again; of the calls that ask Fails() another one fails each time, and none is
  // made behind it. Returns how many a whole run makes.
  int FailEachCall() {
    for (m_failing = 1;; ++m_failing) {
      m_calls = 0;
      const int result = Pack();
      if (m_calls < m_failing) {
        EXPECT_EQ(result, 0);
        ExpectWholeArchive();
        return m_calls;
      }
      EXPECT_EQ(result, m_error) << m_failing;
      EXPECT_EQ(m_calls, m_failing);
      ExpectNothingChanged();
    }
  }

  // The file system knows no files without names.
  void HaveNoUnnamedFiles(int error = EOPNOTSUPP) {
    m_hooks.openat = [error, open = m_hooks.openat](int directory, const char* name, int flags,
                                                    mode_t mode) {
      return IsUnnamed(flags) ? FailWith(error) : open(directory, name, flags, mode);
    };
  }

  // The type of a member has to be asked for.
  void HaveNoTypes() {
    m_hooks.readdir = [](DIR* stream) {
      dirent* const entry = __real_readdir(stream);
      if (entry != nullptr) {
        entry->d_type = DT_UNKNOWN;
      }
      return entry;
    };
  }

  // Runs `work` just before the library opens "d/.../name".
  void BeforeOpening(const char* name, const std::function<void()>& work) {
    m_hooks.openat = [name, work](int directory, const char* opened, int flags, mode_t mode) {
      if (std::strcmp(opened, name) == 0) {
        work();
      }
      return __real_openat(directory, opened, flags, mode);
    };
  }

  void Remove(const std::string& name) const {
    EXPECT_EQ(unlink(m_dir.Path(name).c_str()), 0) << name;
  }

  void ExpectNothingChanged() {
    EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d", "d.tar.gz"));
    EXPECT_EQ(ReadFile(m_dir.Path("d.tar.gz")), "older archive");
    EXPECT_EQ(lumtest::OpenDescriptors(), m_descriptors);
    EXPECT_THAT(m_log, IsEmpty());
  }

  void ExpectWholeArchive() {
    EXPECT_THAT(NamesIn(m_dir.Path()), ElementsAre("d", "d.tar.gz"));
    const UnpackedArchive archive(m_dir.Path("d.tar.gz"));
    ExpectSameTree(m_dir.Path("d"), archive.Path("d"));
    EXPECT_EQ(lumtest::OpenDescriptors(), m_descriptors);
    EXPECT_THAT(m_log, IsEmpty());
  }

  void ExpectArchiveOf(const std::vector<std::string>& names, const std::string& log) {
    EXPECT_EQ(UnpackedArchive(m_dir.Path("d.tar.gz")).Names(), names);
    EXPECT_EQ(lumtest::OpenDescriptors(), m_descriptors);
    EXPECT_THAT(m_log, ElementsAre(log));
  }

  void RemoveSub() const {
    Remove("d/sub/small");
    EXPECT_EQ(rmdir(m_dir.Path("d/sub").c_str()), 0);
  }

  void ExpectPassedOver(const std::string& member, const std::vector<std::string>& names) {
    EXPECT_EQ(Pack(), 0);
    ExpectArchiveOf(names, "BaseAPI/LumFileSys/src/TreePacker PackMember " + member +
                               " has vanished and is passed over");
  }

  TempDir m_dir;
  const std::string m_path = m_dir.Path("d");
  Hooks m_hooks;
  std::size_t m_descriptors = 0;
  int m_calls = 0;
  int m_failing = 0;
  int m_error = 0;
  std::vector<std::string> m_log;
};

// ---- Calls that fail ----

TEST_F(LumArchiveFault, EverySystemCallMayFail) {
  EXPECT_EQ(symlink("big", m_dir.Path("d/link").c_str()), 0);
  HaveNoTypes();
  m_hooks.fcntl = [](int fd, int command, long argument) {
    EXPECT_EQ(command, F_DUPFD_CLOEXEC);
    EXPECT_EQ(argument, 0);
    return __real_fcntl(fd, command, argument);
  };
  MayFail(&Hooks::open, EMFILE);       // what is packed, the directory of the archive
  MayFail(&Hooks::fcntl, EMFILE);      // two directories and the archive
  MayFail(&Hooks::fdopendir, ENOMEM);  // two
  MayFail(&Hooks::readdir, EIO);       // five entries and four dots, two ends
  MayFail(&Hooks::fstat, EIO);         // what open() and openat() gave but the archive, "d" again
  MayFail(&Hooks::fstatat, EIO);       // five types, the link
  MayFail(&Hooks::readlinkat, EIO);    // one
  MayFail(&Hooks::read, EIO);          // four of "big", a block at a time, one of each other file
  MayFail(&Hooks::write, ENOSPC);      // 900,000 bytes that do not compress, 256 KiB at a time
  MayFail(&Hooks::renameat, EPERM);    // one
  const auto openat = m_hooks.openat;
  MayFail(&Hooks::openat, EMFILE);  // three files, "sub", the way back from it, the archive
  HaveNoUnnamedFiles(EMFILE);
  EXPECT_EQ(FailEachCall(), 2 + 3 + 2 + 11 + 8 + 6 + 1 + 6 + 4 + 1 + 6);
  m_hooks.openat = openat;
  m_dir.Write("d.tar.gz", "older archive");
  MayFail(&Hooks::linkat, EDQUOT);  // the archive's name is taken, the temporary one is not
  EXPECT_EQ(FailEachCall(), 2 + 3 + 2 + 11 + 8 + 6 + 1 + 6 + 4 + 1 + 2);
}

TEST_F(LumArchiveFault, ShortAndInterruptedCallsAreGoneOnWith) {
  int calls = 0;
  m_hooks.write = [&](int fd, const void* data, std::size_t size) -> ssize_t {
    errno = 0;
    switch (++calls % 4) {
      case 0:
        return FailWith(EINTR);
      case 1:
        return 0;
      default:
        return __real_write(fd, data, std::min<std::size_t>(size, 10007));
    }
  };
  m_hooks.read = [&](int fd, void* data, std::size_t size) {
    return ++calls % 3 == 0
               ? FailWith(EINTR)
               : __real_read(fd, data, std::min<std::size_t>(size, calls % 3 == 1 ? 1 : 7001));
  };
  EXPECT_EQ(Pack(), 0);
  ExpectWholeArchive();
  EXPECT_GT(calls, 300);
}

TEST_F(LumArchiveFault, CallThatLeavesOneByteIsGoneOnWith) {
  m_hooks.write = [](int fd, const void* data, std::size_t size) {
    return __real_write(fd, data, size > 1 ? size - 1 : size);
  };
  m_hooks.read = [](int fd, void* data, std::size_t size) {  // which asks for one beyond the end
    return __real_read(fd, data, size > 2 ? size - 2 : size);
  };
  g_deflateLeavesOneByte = true;
  EXPECT_EQ(Pack(), 0);
  g_deflateLeavesOneByte = false;
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, DiskThatIsFullOnlyWhenTheFileIsClosed) {
  for (const bool unnamed : {true, false}) {
    if (!unnamed) {
      HaveNoUnnamedFiles();
    }
    m_hooks.close = [](int fd) {
      const bool forWriting = (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY;
      const int result = __real_close(fd);
      return forWriting ? FailWith(ENOSPC) : result;
    };
    EXPECT_EQ(Pack(), ENOSPC);
    ExpectNothingChanged();
  }
}

TEST_F(LumArchiveFault, LinkWhoseTargetIsTooLong) {
  EXPECT_EQ(symlink("big", m_dir.Path("d/link").c_str()), 0);
  std::size_t room = 0;
  const auto targetOf = [&room](std::size_t length) {
    return [&room, length](int, const char*, char* target, std::size_t size) {
      room = size;
      std::memset(target, 't', length);
      return static_cast<ssize_t>(length);
    };
  };
  m_hooks.readlinkat = targetOf(PATH_MAX);  // may have been cut
  EXPECT_EQ(Pack(), ENAMETOOLONG);
  EXPECT_EQ(room, static_cast<std::size_t>(PATH_MAX));
  ExpectNothingChanged();
  m_hooks.readlinkat = targetOf(PATH_MAX - 1);
  EXPECT_EQ(Pack(), 0);
  // Not every file system can hold it.
  const std::string list = lumtest::RunCommand({"tar", "-tvzf", m_dir.Path("d.tar.gz")}).out;
  EXPECT_THAT(list, HasSubstr(" d/link -> " + std::string(PATH_MAX - 1, 't') + "\n"));
}

TEST_F(LumArchiveFault, MemoryRunsOutAtAnyPoint) {
  std::size_t nth = 0;
  bool failed = true;
  while (failed) {
    lumtest::FailNextNew(++nth);
    const int result = Pack();
    failed = lumtest::AllocationHasFailed();
    lumtest::FailNextNew(0);
    EXPECT_EQ(result, failed ? ENOMEM : 0) << nth;
    if (failed) {
      ExpectNothingChanged();
    }
  }
  EXPECT_GT(nth, 5U);
  ExpectWholeArchive();

  m_dir.Write("d.tar.gz", "older archive");
  m_hooks.newArchive = []() -> archive* { return nullptr; };  // the tar writer has none either
  EXPECT_EQ(Pack(), ENOMEM);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, EveryCallOfTheTarWriterMayFail) {
  constexpr int kOfOpening = 5;  // of which only a lack of memory can be the reason
  for (const int error : {EPERM, 0, -1}) {
    m_dir.Write("d.tar.gz", "older archive");
    g_refuses = [this, error](archive* tar) {
      const bool fails = Fails(m_calls < kOfOpening ? ENOMEM : error > 0 ? error : EIO);
      if (fails && tar != nullptr) {
        archive_set_error(tar, error, "refused");
      }
      return fails;
    };
    const int calls = FailEachCall();
    g_refuses = nullptr;
    // Five members, three of them files with pieces and an end; then the end of all.
    EXPECT_EQ(calls, kOfOpening + 5 + 6 + 3 + 1);
  }
}

TEST_F(LumArchiveFault, EveryCallOfTheCompressorMayFail) {
  std::vector<std::uint32_t> blocks;
  g_deflateResult = [&](const isal_zstream& stream) {
    // Both were measured; the bytes that come out do not tell.
    EXPECT_EQ(stream.level, 1U);
    EXPECT_EQ(stream.level_buf_size, static_cast<std::uint32_t>(ISAL_DEF_LVL1_DEFAULT));
    blocks.push_back(stream.avail_in);
    return Fails(EIO) ? STATELESS_OVERFLOW : COMP_OK;
  };
  EXPECT_GE(FailEachCall(), 4);
  EXPECT_EQ(blocks[0], 262144U);
  g_deflateResult = nullptr;
}

TEST_F(LumArchiveFault, FailureEndsAtOnceHoweverMuchWasAnnounced) {
  lumtest::MakeSparseFile(m_dir.Path("d/huge"), std::uint64_t{8} << 30);
  Remove("d/big");
  int writes = 0;
  Before(&Hooks::write, [&] { ++writes; });
  m_hooks.read = [](int, void*, std::size_t) { return FailWith(EIO); };
  EXPECT_EQ(Pack(), EIO);
  EXPECT_EQ(writes, 0);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, ErrnoOfAnEarlierCallIsNoFailure) {
  m_hooks.fdopendir = [](int fd) {
    DIR* const stream = __real_fdopendir(fd);
    errno = ENOTTY;
    return stream;
  };
  m_hooks.readdir = [](DIR* stream) {
    const int before = errno;
    dirent* const entry = __real_readdir(stream);
    EXPECT_EQ(before, 0);
    return entry;
  };
  EXPECT_EQ(Pack(), 0);
  ExpectWholeArchive();
}

// No terminal becomes the process's own, no pipe holds the caller up, no link is followed inside a
// directory, nothing is inherited by a program that another thread starts, and directories need no
// right to be listed where they are only passed through.
TEST_F(LumArchiveFault, EveryOpenSaysWhatItMeans) {
  std::vector<std::pair<std::string, int>> opens;
  m_hooks.open = [&](const char* path, int flags, mode_t mode) {
    opens.emplace_back(path, flags);
    return __real_open(path, flags, mode);
  };
  m_hooks.openat = [&](int directory, const char* name, int flags, mode_t mode) {
    opens.emplace_back(Makes(flags) && name[0] == '.' ? "." : name, flags);
    EXPECT_EQ(mode, Makes(flags) ? 0600U : 0U);
    return IsUnnamed(flags) ? FailWith(EOPNOTSUPP) : __real_openat(directory, name, flags, mode);
  };
  EXPECT_EQ(Pack(), 0);
  const int file = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  EXPECT_THAT(
      opens,
      ElementsAre(std::pair(m_path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC),
                  std::pair(m_dir.Path() + "/", O_PATH | O_DIRECTORY | O_CLOEXEC),
                  std::pair(".", O_WRONLY | O_TMPFILE | O_CLOEXEC),
                  std::pair(".", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC), std::pair("big", file),
                  std::pair("sub", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC),
                  std::pair("small", file), std::pair("..", O_PATH | O_DIRECTORY | O_CLOEXEC),
                  std::pair("z", file)));
  ExpectWholeArchive();
}

// ---- The archive's name ----

TEST_F(LumArchiveFault, ArchiveHasNoNameUntilItIsWhole) {
  const TemporaryFilesIn memory("/dev/shm");
  const TempDir dir;
  dir.Write("d/big", Noise(900000));
  int calls = 0;
  const auto expectOnly = [&](std::vector<std::string> names) {
    ++calls;
    EXPECT_EQ(NamesIn(dir.Path()), names);
  };
  const auto pack = [&] {
    return LumCompressAndDeCompress::CompressFilePath(dir.Path("d").c_str());
  };
  Before(&Hooks::write, [&] { expectOnly({"d"}); });
  m_hooks.renameat = [](auto...) { return FailWith(ENOSYS); };  // nothing to replace
  EXPECT_EQ(Pack(pack), 0);
  EXPECT_EQ(calls, 4);
  ExpectSameTree(dir.Path("d"), UnpackedArchive(dir.Path("d.tar.gz")).Path("d"));

  lumtest::WriteFile(dir.Path("d.tar.gz"), "older archive");
  Before(&Hooks::write, [&] { expectOnly({"d", "d.tar.gz"}); });
  m_hooks.renameat = [&](int from, const char* name, int to, const char* newName) {
    expectOnly({name, "d", "d.tar.gz"});
    EXPECT_THAT(name, MatchesRegex("\\.lum-archive-[0-9a-f]{16}"));
    EXPECT_STREQ(newName, "d.tar.gz");
    EXPECT_EQ(ReadFile(dir.Path("d.tar.gz")), "older archive");
    ExpectSameTree(dir.Path("d"), UnpackedArchive(dir.Path(name)).Path("d"));
    const int result = __real_renameat(from, name, to, newName);
    dir.Write(name, "somebody else's by now");
    return result;
  };
  EXPECT_EQ(Pack(pack), 0);
  EXPECT_EQ(calls, 9);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre(StartsWith(".lum-archive-"), "d", "d.tar.gz"));
  ExpectSameTree(dir.Path("d"), UnpackedArchive(dir.Path("d.tar.gz")).Path("d"));
  EXPECT_EQ(lumtest::OpenDescriptors(), m_descriptors);
}

TEST_F(LumArchiveFault, FileSystemWithoutUnnamedFiles) {
  for (const int error : {EOPNOTSUPP, EISDIR, ENOENT, EINVAL}) {
    HaveNoUnnamedFiles(error);
    int writes = 0;
    Before(&Hooks::write, [&] {
      ++writes;
      const std::vector<std::string> names = NamesIn(m_dir.Path());
      EXPECT_THAT(names, ElementsAre(MatchesRegex("\\.lum-archive-[0-9a-f]{16}"), "d", "d.tar.gz"));
      EXPECT_EQ(FileMode(m_dir.Path(names[0])), 0600U);
    });
    EXPECT_EQ(Pack(), 0) << error;
    EXPECT_EQ(writes, 4);
    ExpectWholeArchive();

    m_dir.Write("d.tar.gz", "older archive");
    m_hooks.write = [](int, const void*, std::size_t) { return FailWith(ENOSPC); };
    EXPECT_EQ(Pack(), ENOSPC);
    ExpectNothingChanged();
  }
}

TEST_F(LumArchiveFault, ProcThatIsNotMounted) {
  int asked = 0;
  m_hooks.access = [&](const char* path, int mode) {
    ++asked;
    EXPECT_THAT(path, MatchesRegex("/proc/self/fd/[0-9]+"));
    EXPECT_EQ(mode, F_OK);
    return FailWith(ENOENT);
  };
  m_hooks.linkat = [](auto...) { return FailWith(ENOENT); };
  EXPECT_EQ(Pack(), 0);
  EXPECT_EQ(asked, KnowsUnnamedFiles(m_dir) ? 1 : 0);
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, TemporaryNameThatIsTakenIsLeftAlone) {
  std::vector<std::string> taken;
  const auto takeFirst = [&](const char* name) {
    if (name[0] == '.' && taken.size() % 3 != 2) {
      m_dir.Write(name, "somebody else's");
      taken.push_back(name);
    } else if (name[0] == '.') {
      taken.push_back("");
    }
  };
  m_hooks.linkat = [&](int from, const char* name, int to, const char* newName, int flags) {
    takeFirst(newName);
    return __real_linkat(from, name, to, newName, flags);
  };
  EXPECT_EQ(Pack(), 0);
  m_hooks.openat = [&](int directory, const char* name, int flags, mode_t mode) {
    if ((flags & O_CREAT) != 0) {
      takeFirst(name);
    }
    return __real_openat(directory, name, flags, mode);
  };
  HaveNoUnnamedFiles();
  EXPECT_EQ(Pack(), 0);
  ASSERT_EQ(taken.size(), KnowsUnnamedFiles(m_dir) ? 6U : 3U);
  for (const std::string& name : taken) {
    if (!name.empty()) {
      EXPECT_EQ(ReadFile(m_dir.Path(name)), "somebody else's");
      Remove(name);
    }
  }
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, ArchiveOfItsOwnDirectoryPassesItsTemporaryFileOver) {
  HaveNoUnnamedFiles();
  EXPECT_EQ(
      Pack([this] { return LumCompressAndDeCompress::CompressFilePath((m_path + "/").c_str()); }),
      0);
  EXPECT_THAT(UnpackedArchive(m_dir.Path("d/.tar.gz")).Names(),
              ElementsAre("d/", "d/big", "d/sub/", "d/sub/small", "d/z"));
}

TEST_F(LumArchiveFault, ArchiveInTheRootIsMadeThere) {
  struct stat root;
  ASSERT_EQ(stat("/", &root), 0);
  m_hooks.openat = [&](int directory, const char*, int, mode_t) {
    struct stat status;
    EXPECT_EQ(__real_fstat(directory, &status), 0);
    EXPECT_EQ(status.st_ino, root.st_ino);
    return FailWith(EACCES);
  };
  const std::string group = m_dir.Path("d/z");
  EXPECT_EQ(
      Pack([&] { return LumCompressAndDeCompress::CompressFileGroup(group.c_str(), "/archive"); }),
      EACCES);
  ExpectNothingChanged();
}

TEST_F(LumArchiveFault, PendingFileIsKnownByItsDirectoryAndName) {
  const lumfilesys::PendingFile file(m_dir.Path("d.tar.gz"));
  struct stat directory;
  ASSERT_EQ(stat(m_dir.Path().c_str(), &directory), 0);
  EXPECT_TRUE(file.IsAt(directory, "d.tar.gz"));
  EXPECT_FALSE(file.IsAt(directory, "d"));
  EXPECT_FALSE(file.IsAt(directory, "d.tar.gz2"));
  ++directory.st_dev;
  EXPECT_FALSE(file.IsAt(directory, "d.tar.gz"));
  --directory.st_dev;
  ++directory.st_ino;
  EXPECT_FALSE(file.IsAt(directory, "d.tar.gz"));
}

// ---- Permissions ----

// Whatever the umask, and from the start; where permissions are refused, the umask still narrows.
TEST_F(LumArchiveFault, OnlyTheOwnerMayUseTheArchive) {
  m_hooks.write = [](int fd, const void* data, std::size_t size) {
    struct stat status;
    EXPECT_EQ(__real_fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    return __real_write(fd, data, size);
  };
  for (const bool unnamed : {true, false}) {
    if (!unnamed) {
      HaveNoUnnamedFiles();
    }
    for (const mode_t mask : {0U, 022U, 077U, 0200U, 0777U}) {
      m_hooks.fchmod = [mask](int fd, mode_t mode) {
        return mask == 0 ? FailWith(EPERM) : __real_fchmod(fd, mode);
      };
      const mode_t before = umask(mask);
      const int result = Pack();
      umask(before);
      EXPECT_EQ(result, 0);
      EXPECT_EQ(FileMode(m_dir.Path("d.tar.gz")), 0600U) << mask;
    }
  }
  ExpectWholeArchive();
}

// ---- A process that is killed ----

// Packs "d" of `dir` in a process that is killed at its system call number `call`; false when it
// does not make so many.
bool PackAndKill(const TempDir& dir, Hooks hooks, int call) {
  const auto pack = [&] {
    int calls = 0;
    hooks.beforeEach = [&] {
      if (++calls == call) {
        raise(SIGKILL);
      }
    };
    const HooksInScope scope(&hooks);
    EXPECT_EQ(LumCompressAndDeCompress::CompressFilePath(dir.Path("d").c_str()), 0);
  };
  return SignalOfChild(pack) == SIGKILL;
}

class LumArchiveKill : public ::testing::TestWithParam<std::string> {
 protected:
  LumArchiveKill() : m_place(GetParam()) {
    m_dir.MakeDir("d/sub");
    m_dir.Write("d/big", Noise(600000));
  }

  // Kills at one call after the other; returns what was left at each, "d" and whole archives apart.
  std::vector<std::string> LeftBehind(const Hooks& hooks, bool replaces) {
    std::vector<std::string> left;
    for (int call = 1;; ++call) {
      if (replaces) {
        m_dir.Write("d.tar.gz", "older archive");
      }
      const bool killed = PackAndKill(m_dir, hooks, call);
      for (const std::string& name : NamesIn(m_dir.Path())) {
        if (name == "d") {
          continue;
        }
        const std::string path = m_dir.Path(name);
        if (name != "d.tar.gz") {
          left.push_back(name);
        } else if (!replaces || ReadFile(path) != "older archive") {
          ExpectSameTree(m_dir.Path("d"), UnpackedArchive(path).Path("d"));
        }
        EXPECT_EQ(unlink(path.c_str()), 0);
      }
      if (!killed) {
        EXPECT_GT(call, 20);
        return left;
      }
    }
  }

  const TemporaryFilesIn m_place;
  const TempDir m_dir;
};

TEST_P(LumArchiveKill, LeavesNothingBehind) {
  if (KnowsUnnamedFiles(m_dir)) {
    EXPECT_THAT(LeftBehind(Hooks(), false), IsEmpty());
  }
}

TEST_P(LumArchiveKill, LeavesAWholeArchiveWhenItIsJustReplacingAnother) {
  if (KnowsUnnamedFiles(m_dir)) {
    EXPECT_THAT(LeftBehind(Hooks(), true),
                ElementsAre(MatchesRegex("\\.lum-archive-[0-9a-f]{16}")));
  }
}

TEST_P(LumArchiveKill, LeavesTheTemporaryFileWhereFilesNeedNames) {
  Hooks hooks;
  hooks.openat = [](int directory, const char* name, int flags, mode_t mode) {
    return IsUnnamed(flags) ? FailWith(EOPNOTSUPP) : __real_openat(directory, name, flags, mode);
  };
  const std::vector<std::string> left = LeftBehind(hooks, false);
  EXPECT_GT(left.size(), 10U);
  EXPECT_THAT(left, Each(MatchesRegex("\\.lum-archive-[0-9a-f]{16}")));
}

INSTANTIATE_TEST_SUITE_P(FileSystems, LumArchiveKill,
                         ::testing::Values(UsualPlace(), std::string("/dev/shm")),
                         [](const auto& place) { return place.index == 0 ? "Usual" : "Memory"; });

// ---- Files that change while they are packed ----

TEST_F(LumArchiveFault, FileIsPackedToTheSizeThatItHad) {
  constexpr std::size_t kBlock = 262144;
  const struct {
    std::size_t size;
    int atRead;  // counted from 1
    std::size_t changed;
  } kCases[] = {
      {900000, 2, 899999},
      {900000, 2, 300000},
      {900000, 2, kBlock},
      {900000, 1, 0},
      // Empty, small, and with an end that falls on the end of a block: a header of 512 bytes for
      // "d/" and one for the file stand before the content.
      {0, 1, 1},
      {1, 1, 2},
      {900000, 1, 900001},
      {2 * kBlock - 1024, 1, 2 * kBlock - 1023},
      {2 * kBlock - 1025, 1, 2 * kBlock - 1024},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(::testing::Message() << row.size << " to " << row.changed);
    m_log.clear();
    m_dir.Write("d/big", Noise(row.size));
    int reads = 0;
    Before(&Hooks::read, [&] {
      if (++reads == row.atRead) {
        EXPECT_EQ(truncate(m_dir.Path("d/big").c_str(), static_cast<off_t>(row.changed)), 0);
      }
    });
    EXPECT_EQ(Pack(), 0);
    std::string expected = Noise(row.size).substr(0, row.changed);
    const std::size_t missing = row.size - expected.size();
    expected += std::string(missing, '\0');
    const UnpackedArchive archive(m_dir.Path("d.tar.gz"));
    EXPECT_TRUE(ReadFile(archive.Path("d/big")) == expected);
    EXPECT_EQ(ReadFile(archive.Path("d/z")), "last");
    ExpectArchiveOf({"d/", "d/big", "d/sub/", "d/sub/small", "d/z"},
                    kTarWriter + (missing > 0 ? "d/big has shrunk and is filled up with " +
                                                    std::to_string(missing) + " zero bytes"
                                              : "d/big has grown and is packed to its first " +
                                                    std::to_string(row.size) + " bytes"));
  }
}

TEST_F(LumArchiveFault, DiskThatIsFullWhenAFileIsFilledUp) {
  Before(&Hooks::read, [&] { EXPECT_EQ(truncate(m_dir.Path("d/big").c_str(), 0), 0); });
  m_hooks.write = [](int, const void*, std::size_t) { return FailWith(ENOSPC); };
  EXPECT_EQ(Pack(), ENOSPC);
  m_log.clear();
  ExpectNothingChanged();
}

// Where a file ends with a block, there is room for no more.
TEST_F(LumArchiveFault, OneByteBehindTheEndIsAskedFor) {
  off_t furthest = 0;
  m_hooks.read = [&](int fd, void* data, std::size_t size) {
    const off_t end = lseek(fd, 0, SEEK_CUR) + static_cast<off_t>(size);
    struct stat status;
    EXPECT_EQ(__real_fstat(fd, &status), 0);
    furthest = std::max(furthest, end - status.st_size);
    return __real_read(fd, data, size);
  };
  EXPECT_EQ(Pack(), 0);
  EXPECT_EQ(furthest, 1);
  ExpectWholeArchive();
}

TEST_F(LumArchiveFault, FileThatVanishesAfterItWasListedIsPassedOver) {
  BeforeOpening("big", [this] { Remove("d/big"); });
  ExpectPassedOver("d/big", {"d/", "d/sub/", "d/sub/small", "d/z"});
}

TEST_F(LumArchiveFault, DirectoryThatVanishesAfterItWasListedIsPassedOver) {
  BeforeOpening("sub", [this] { RemoveSub(); });
  ExpectPassedOver("d/sub", {"d/", "d/big", "d/z"});
}

TEST_F(LumArchiveFault, DirectoryThatVanishesWhileItIsPackedKeepsWhatIsPacked) {
  BeforeOpening("small", [this] { RemoveSub(); });
  ExpectPassedOver("d/sub/small", {"d/", "d/big", "d/sub/", "d/z"});
}

TEST_F(LumArchiveFault, LinkThatVanishesAfterItWasListedIsPassedOver) {
  EXPECT_EQ(symlink("big", m_dir.Path("d/link").c_str()), 0);
  Before(&Hooks::readlinkat, [this] { Remove("d/link"); });
  ExpectPassedOver("d/link", {"d/", "d/big", "d/sub/", "d/sub/small", "d/z"});

  m_log.clear();
  EXPECT_EQ(symlink("big", m_dir.Path("d/link").c_str()), 0);
  m_hooks.readlinkat = [](auto...) -> ssize_t { return FailWith(EIO); };  // is not asked any more
  Before(&Hooks::fstatat, [this] { Remove("d/link"); });
  ExpectPassedOver("d/link", {"d/", "d/big", "d/sub/", "d/sub/small", "d/z"});
}

TEST_F(LumArchiveFault, MemberOfUnknownTypeThatVanishesIsPassedOver) {
  HaveNoTypes();
  m_hooks.fstatat = [this](int directory, const char* name, struct stat* status, int flags) {
    if (std::strcmp(name, "big") == 0) {
      Remove("d/big");
    }
    return __real_fstatat(directory, name, status, flags);
  };
  ExpectPassedOver("d/big", {"d/", "d/sub/", "d/sub/small", "d/z"});
}

TEST_F(LumArchiveFault, FileThatBecomesAPipeIsPassedOver) {
  BeforeOpening("z", [this] {
    Remove("d/z");
    EXPECT_EQ(mkfifo(m_dir.Path("d/z").c_str(), 0600), 0);
  });
  EXPECT_EQ(Pack(), 0);
  EXPECT_THAT(UnpackedArchive(m_dir.Path("d.tar.gz")).Names(),
              ElementsAre("d/", "d/big", "d/sub/", "d/sub/small"));
}

TEST_F(LumArchiveFault, WhatBecomesALinkOrIsMovedAwayIsNotFollowed) {
  const struct {
    const char* opened;
    const char* from;  // moved, just before something is opened
    const char* to;
    const char* target;  // of the link that takes the place
    int error;
  } kCases[] = {
      {"z", "d/z", "d/y", "/etc/passwd", ELOOP},
      {"sub", "d/sub", "d/other", "other", ENOTDIR},
      {"small", "d/sub", "d/elsewhere/sub", nullptr, ESTALE},
  };
  m_dir.MakeDir("d/elsewhere");
  for (const auto& row : kCases) {
    BeforeOpening(row.opened, [&] {
      EXPECT_EQ(rename(m_dir.Path(row.from).c_str(), m_dir.Path(row.to).c_str()), 0);
      EXPECT_TRUE(row.target == nullptr || symlink(row.target, m_dir.Path(row.from).c_str()) == 0);
    });
    EXPECT_EQ(Pack(), row.error) << row.opened;
    ExpectNothingChanged();
    unlink(m_dir.Path(row.from).c_str());
    EXPECT_EQ(rename(m_dir.Path(row.to).c_str(), m_dir.Path(row.from).c_str()), 0);
  }
}

TEST_F(LumArchiveFault, DirectoryThatIsMovedToAnotherFileSystemsDirectoryOfThatNumber) {
  m_hooks.openat = [this](int directory, const char* name, int flags, mode_t mode) {
    if (std::strcmp(name, "..") == 0) {
      m_hooks.fstat = [](int fd, struct stat* status) {
        const int result = __real_fstat(fd, status);
        ++status->st_dev;
        return result;
      };
    }
    return __real_openat(directory, name, flags, mode);
  };
  EXPECT_EQ(Pack(), ESTALE);
  ExpectNothingChanged();
}

// ---- Names, numbers and sizes ----

TEST_F(LumArchiveFault, RootIsPackedAsADot) {
  m_hooks.readdir = [](DIR*) -> dirent* { return nullptr; };  // and without what is below it
  const std::string base = m_dir.Path("d");
  EXPECT_EQ(Pack([&] { return LumCompressAndDeCompress::CompressFileGroup("/", base.c_str()); }),
            0);
  EXPECT_THAT(UnpackedArchive(base + ".tar.gz").Names(), ElementsAre("./"));
}

// Where standard input is closed, the file that is opened next gets its number.
TEST_F(LumArchiveFault, DescriptorZeroIsOneLikeTheOthers) {
  for (const bool unnamed : {true, false}) {
    for (int zeroth = 0; zeroth <= 6; ++zeroth) {  // the archive, three files, "sub", the way back
      const auto pack = [&] {
        int opens = 0;
        if (zeroth == 0) {
          close(STDIN_FILENO);  // before "d" is opened
        }
        m_hooks.openat = [&](int directory, const char* name, int flags, mode_t mode) {
          if (!unnamed && IsUnnamed(flags)) {
            return FailWith(EOPNOTSUPP);
          }
          const bool isZeroth = ++opens == zeroth;
          if (isZeroth) {
            close(STDIN_FILENO);
          }
          const int fd = __real_openat(directory, name, flags, mode);
          EXPECT_TRUE(!isZeroth || fd == STDIN_FILENO);
          errno = EEXIST;  // of an earlier call
          return fd;
        };
        EXPECT_EQ(Pack(), 0);
        EXPECT_EQ(opens, 6);
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);  // closed again
        EXPECT_EQ(lumtest::OpenDescriptors(), m_descriptors - 1);
      };
      EXPECT_EQ(SignalOfChild(pack), 0) << unnamed << zeroth;
      ExpectWholeArchive();
    }
  }
}

TEST_F(LumArchiveFault, ReadingAheadIsAskedForWhereItIsWorthACall) {
  std::vector<int> advice;
  m_hooks.fadvise = [&](int, off_t start, off_t size, int what) {
    EXPECT_EQ(start, 0);
    EXPECT_EQ(size, 0);
    advice.push_back(what);
    return 0;
  };
  for (const std::size_t size : {262144, 262145}) {
    m_dir.Write("d/big", Noise(size));
    EXPECT_EQ(Pack(), 0);
    EXPECT_EQ(advice.size(), size - 262144);
    ExpectWholeArchive();
  }
  EXPECT_THAT(advice, ElementsAre(POSIX_FADV_SEQUENTIAL));
}

TEST(LumGzipCompressFault, MemoryRunsOut) {
  std::thread([] {  // each thread's first call takes memory
    char out[100];
    lumtest::FailNextNew(1);
    const int result = LumCompressAndDeCompress::GzipCompress("text", 4, out, sizeof out);
    EXPECT_TRUE(lumtest::AllocationHasFailed());
    lumtest::FailNextNew(0);
    EXPECT_EQ(result, -1);
    EXPECT_GT(LumCompressAndDeCompress::GzipCompress("text", 4, out, sizeof out), 0);
  })
      .join();
}

TEST(LumGzipCompressFault, CompressorGetsLevelOne) {
  char out[100];
  g_deflateResult = [](const isal_zstream& stream) {
    EXPECT_EQ(stream.level, 1U);
    EXPECT_EQ(stream.end_of_stream, 1);
    return COMP_OK;
  };
  const int result = LumCompressAndDeCompress::GzipCompress("text", 4, out, sizeof out);
  g_deflateResult = nullptr;
  EXPECT_GT(result, 0);
}

}  // namespace

// The linker takes a shared library's reference to a wrapped function for one to the wrapper.
#pragma GCC visibility push(default)
extern "C" {

int __wrap_access(const char* path, int mode) {
  return Call(&Hooks::access, __real_access, path, mode);
}

void __wrap_archive_entry_free(archive_entry* entry) {
  __real_archive_entry_free(Given(entry));
}

archive_entry* __wrap_archive_entry_new() {
  return Refuses(nullptr) ? nullptr : Taken(__real_archive_entry_new());
}

int __wrap_archive_write_add_filter_none(archive* tar) {
  return Refuses(tar) ? ARCHIVE_FATAL : __real_archive_write_add_filter_none(tar);
}

int __wrap_archive_write_close(archive* tar) {
  return Refuses(tar) ? ARCHIVE_FATAL : __real_archive_write_close(tar);
}

la_ssize_t __wrap_archive_write_data(archive* tar, const void* data, std::size_t size) {
  return Refuses(tar) ? ARCHIVE_FATAL : __real_archive_write_data(tar, data, size);
}

int __wrap_archive_write_finish_entry(archive* tar) {
  return Refuses(tar) ? ARCHIVE_FATAL : __real_archive_write_finish_entry(tar);
}

int __wrap_archive_write_free(archive* tar) {
  return __real_archive_write_free(Given(tar));
}

int __wrap_archive_write_header(archive* tar, archive_entry* entry) {
  return Refuses(tar) ? ARCHIVE_FAILED : __real_archive_write_header(tar, entry);
}

archive* __wrap_archive_write_new() {
  return Taken(Call(&Hooks::newArchive, __real_archive_write_new));
}

int __wrap_archive_write_open2(archive* tar, void* data, archive_open_callback* open,
                               archive_write_callback* write, archive_close_callback* close,
                               archive_free_callback* release) {
  return Refuses(tar) ? ARCHIVE_FATAL
                      : __real_archive_write_open2(tar, data, open, write, close, release);
}

int __wrap_archive_write_set_bytes_per_block(archive* tar, int size) {
  EXPECT_EQ(size, 0);  // everything is handed on as it comes
  return Refuses(tar) ? ARCHIVE_FATAL : __real_archive_write_set_bytes_per_block(tar, size);
}

int __wrap_archive_write_set_format_gnutar(archive* tar) {
  return Refuses(tar) ? ARCHIVE_FATAL : __real_archive_write_set_format_gnutar(tar);
}

int __wrap_close(int fd) {
  return Call(&Hooks::close, __real_close, fd);
}

int __wrap_fchmod(int fd, mode_t mode) {
  return Call(&Hooks::fchmod, __real_fchmod, fd, mode);
}

int __wrap_fcntl(int fd, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return Call(&Hooks::fcntl, __real_fcntl, fd, command, argument);
}

DIR* __wrap_fdopendir(int fd) {
  return Call(&Hooks::fdopendir, __real_fdopendir, fd);
}

int __wrap_fstat(int fd, struct stat* status) {
  return Call(&Hooks::fstat, __real_fstat, fd, status);
}

int __wrap_fstatat(int directory, const char* name, struct stat* status, int flags) {
  return Call(&Hooks::fstatat, __real_fstatat, directory, name, status, flags);
}

int __wrap_isal_deflate(isal_zstream* stream) {
  return Deflated(stream, __real_isal_deflate);
}

int __wrap_isal_deflate_stateless(isal_zstream* stream) {
  return Deflated(stream, __real_isal_deflate_stateless);
}

int __wrap_linkat(int from, const char* name, int to, const char* newName, int flags) {
  return Call(&Hooks::linkat, __real_linkat, from, name, to, newName, flags);
}

int __wrap_open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = Makes(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Call(&Hooks::open, __real_open, path, flags, mode);
}

int __wrap_openat(int directory, const char* name, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = Makes(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Call(&Hooks::openat, __real_openat, directory, name, flags, mode);
}

int __wrap_posix_fadvise(int fd, off_t start, off_t size, int advice) {
  return Call(&Hooks::fadvise, __real_posix_fadvise, fd, start, size, advice);
}

ssize_t __wrap_read(int fd, void* data, std::size_t size) {
  return Call(&Hooks::read, __real_read, fd, data, size);
}

dirent* __wrap_readdir(DIR* stream) {
  return Call(&Hooks::readdir, __real_readdir, stream);
}

ssize_t __wrap_readlinkat(int directory, const char* name, char* target, std::size_t size) {
  return Call(&Hooks::readlinkat, __real_readlinkat, directory, name, target, size);
}

int __wrap_renameat(int from, const char* name, int to, const char* newName) {
  return Call(&Hooks::renameat, __real_renameat, from, name, to, newName);
}

int __wrap_unlinkat(int directory, const char* name, int flags) {
  EXPECT_STRNE(name, "");  // there is something to remove
  return __real_unlinkat(directory, name, flags);
}

ssize_t __wrap_write(int fd, const void* data, std::size_t size) {
  return Call(&Hooks::write, __real_write, fd, data, size);
}

}  // extern "C"
#pragma GCC visibility pop
