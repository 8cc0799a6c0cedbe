// The platform libraries as the product calls them, and the C functions that the linker wraps
// (see CMakeLists.txt), recorded.

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "LumFileSys.h"
#include "LumLogger.h"
#include "LumNet.h"
#include "Recorder.h"

using lumtest::InDouble;
using lumtest::LogLine;
using lumtest::Recorder;

namespace {

thread_local bool g_instanceAsked = false;

// The arguments of a printf format one by one; the product uses %s, %d and %ld alone.
std::vector<std::string> SplitArguments(const char* format, va_list arguments) {
  std::vector<std::string> texts;
  for (const char* p = std::strchr(format, '%'); p != nullptr; p = std::strchr(p + 1, '%')) {
    if (p[1] == 's') {
      texts.emplace_back(va_arg(arguments, const char*));
    } else if (p[1] == 'd') {
      texts.push_back(std::to_string(va_arg(arguments, int)));
    } else if (p[1] == 'l' && p[2] == 'd') {
      texts.push_back(std::to_string(va_arg(arguments, long)));
    } else {
      texts.emplace_back("conversion not known to the recorder");
      break;
    }
  }
  return texts;
}

// A compression that succeeds leaves seven bytes where its archive belongs.
int MakeArchive(const std::string& path) {
  const int result = Recorder::Get().compress;
  if (result == 0) {
    const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
    const bool written = write(file, "archive", 7) == 7;
    close(file);
    return written ? 0 : -1;
  }
  return result;
}

}  // namespace

struct LumLogger::State {};

LumLogger::LumLogger() : m_state(nullptr) {}
LumLogger::~LumLogger() = default;

LumLogger& LumLogger::GetInstance() {
  const InDouble exempt;
  static auto* logger = new LumLogger;
  g_instanceAsked = true;
  return *logger;
}

void LumLogger::Log(const char* file, int line, const char* function, const char* tag,
                    const char* detail, int level, const char* format, ...) {
  const InDouble exempt;
  LogLine record;
  record.file = file;
  record.line = line;
  record.function = function;
  record.tag = tag;
  record.detail = detail;
  record.level = level;
  record.format = format;
  record.asked = g_instanceAsked;
  g_instanceAsked = false;

  va_list arguments;
  va_start(arguments, format);
  va_list copy;
  va_copy(copy, arguments);
  record.arguments = SplitArguments(format, copy);
  va_end(copy);
  va_copy(copy, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  record.message.resize(static_cast<std::size_t>(length) + 1);
  std::vsnprintf(record.message.data(), record.message.size(), format, arguments);
  va_end(arguments);
  record.message.pop_back();
  if (Recorder::Get().onLog) {
    Recorder::Get().onLog(record);
  }
  Recorder::Get().AddLog(record);
}

std::string LumNet::GetInterfaceName(const std::string& mac) {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  recorder.Add("GetInterfaceName " + mac);
  if (recorder.interfaceNames.empty()) {
    return std::string();
  }
  std::string name = recorder.interfaceNames.front();
  recorder.interfaceNames.pop_front();
  return name;
}

int LumNet::GetLocalIpAddress(const std::string& mac, std::string& ipv4, std::string& ipv6) {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  recorder.Add("GetLocalIpAddress " + mac);
  ipv4 = recorder.localIpv4;
  ipv6 = recorder.localIpv6;
  return recorder.localIp;
}

bool LumNet::IsIPv4Address(const std::string& text) {
  const InDouble exempt;
  Recorder::Get().Add("IsIPv4Address " + text);
  return Recorder::Get().validIpv4.count(text) != 0;
}

bool LumNet::IsIPv6Address(const std::string& text) {
  const InDouble exempt;
  Recorder::Get().Add("IsIPv6Address " + text);
  return Recorder::Get().validIpv6.count(text) != 0;
}

bool LumDir::LumRealPath(const char* path, int length) {
  const InDouble exempt;
  Recorder::Get().Add(std::string("LumRealPath ") + path + " " + std::to_string(length));
  return Recorder::Get().realPath;
}

int LumFile::RemoveFile(const std::string& path) {
  const InDouble exempt;
  Recorder::Get().Add("RemoveFile " + path);
  if (Recorder::Get().removeFile == 0) {
    unlink(path.c_str());
  }
  return Recorder::Get().removeFile;
}

int LumCompressAndDeCompress::GzipCompress(const char* source, int sourceLength, char* destination,
                                           int destinationLength) {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  bool zeroed = true;
  for (int i = 0; i < destinationLength; ++i) {
    zeroed = zeroed && destination[i] == 0;
  }
  recorder.Add("GzipCompress " + std::to_string(sourceLength) + " into " +
               std::to_string(destinationLength) + (zeroed ? " zero bytes" : " bytes"));
  const std::string text(source, static_cast<std::size_t>(sourceLength));
  if (recorder.gzip) {
    return recorder.gzip(text, destination, destinationLength);
  }
  const std::string packed = "gz(" + std::to_string(sourceLength) + ")";
  std::memcpy(destination, packed.data(), packed.size());
  return static_cast<int>(packed.size());
}

int LumCompressAndDeCompress::CompressFile(const char* filePath) {
  const InDouble exempt;
  Recorder::Get().Add(std::string("CompressFile ") + filePath);
  return MakeArchive(std::string(filePath) + ".tar.gz");
}

int LumCompressAndDeCompress::CompressFilePath(const char* dirPath) {
  const InDouble exempt;
  Recorder::Get().Add(std::string("CompressFilePath ") + dirPath);
  return MakeArchive(std::string(dirPath) + ".tar.gz");
}

int LumCompressAndDeCompress::CompressFileGroup(const char* fileGroup, const char* archiveBase) {
  const InDouble exempt;
  Recorder::Get().Add(std::string("CompressFileGroup ") + fileGroup + " " + archiveBase);
  return MakeArchive(std::string(archiveBase) + ".tar.gz");
}

extern "C" {

int __real_memset_s(void* destination, std::size_t capacity, int value, std::size_t count);
int __wrap_memset_s(void* destination, std::size_t capacity, int value, std::size_t count) {
  const InDouble exempt;
  Recorder::Get().Add("memset_s " + std::to_string(capacity) + " " + std::to_string(value) + " " +
                      std::to_string(count));
  return __real_memset_s(destination, capacity, value, count);
}

int __real_memcpy_s(void* destination, std::size_t capacity, const void* source, std::size_t count);
int __wrap_memcpy_s(void* destination, std::size_t capacity, const void* source,
                    std::size_t count) {
  const InDouble exempt;
  Recorder::Get().Add("memcpy_s " + std::to_string(capacity) + " " + std::to_string(count));
  const int result = __real_memcpy_s(destination, capacity, source, count);
  return result == 0 ? Recorder::Get().memcpyResult : result;
}

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  recorder.Add(std::string("fopen ") + path + " " + mode);
  FILE* file = recorder.failFopen ? nullptr : __real_fopen(path, mode);
  if (file != nullptr) {
    ++recorder.m_liveFiles;
  }
  return file;
}

int __real_fclose(FILE* file);
int __wrap_fclose(FILE* file) {
  const InDouble exempt;
  Recorder::Get().Add("fclose");
  --Recorder::Get().m_liveFiles;
  return __real_fclose(file);
}

int __real_fflush(FILE* file);
int __wrap_fflush(FILE* file) {
  const InDouble exempt;
  if (file == stdout || file == stderr || file == nullptr) {  // the test framework's own
    return __real_fflush(file);
  }
  Recorder::Get().Add("fflush");
  const int result = __real_fflush(file);
  return Recorder::Get().failFflush ? EOF : result;
}

int __real_fseek(FILE* file, long offset, int whence);
int __wrap_fseek(FILE* file, long offset, int whence) {
  const InDouble exempt;
  Recorder::Get().Add("fseek " + std::to_string(offset) +
                      (whence == SEEK_END ? " from the end" : " from the start"));
  return Recorder::Get().failSeek ? -1 : __real_fseek(file, offset, whence);
}

long __real_ftell(FILE* file);
long __wrap_ftell(FILE* file) {
  const InDouble exempt;
  Recorder::Get().Add("ftell");
  return __real_ftell(file);
}

int __real_setvbuf(FILE* file, char* buffer, int mode, std::size_t size);
int __wrap_setvbuf(FILE* file, char* buffer, int mode, std::size_t size) {
  const InDouble exempt;
  Recorder::Get().Add("setvbuf " + std::to_string(size));
  return __real_setvbuf(file, buffer, mode, size);
}

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
  const std::size_t fails = Recorder::m_failMalloc;
  return fails != 0 && fails == size ? nullptr : __real_malloc(size);
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  const InDouble exempt;
  bool fails = false;
  if (!Recorder::Get().IsWatched(mutex, fails)) {
    return __real_pthread_mutex_lock(mutex);
  }
  if (fails) {
    return EINVAL;
  }
  if (Recorder::Get().onLock) {
    Recorder::Get().onLock();
  }
  const int result = __real_pthread_mutex_lock(mutex);
  Recorder::Get().Add("lock");
  return result;
}

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const InDouble exempt;
  bool fails = false;
  if (Recorder::Get().IsWatched(mutex, fails)) {
    Recorder::Get().Add("unlock");
  }
  return __real_pthread_mutex_unlock(mutex);
}

}  // extern "C"
