// free() as the linker wraps it (see CMakeLists.txt).

#include "FreedBuffer.h"

#include <atomic>

#include "recording/Recorder.h"

namespace {

std::atomic<const void*> g_watched{nullptr};

}  // namespace

namespace lumtest {

void WatchFree(const void* buffer) {
  g_watched = buffer;
}

}  // namespace lumtest

extern "C" {

void __real_free(void* buffer);
void __wrap_free(void* buffer) {
  const void* freed = buffer;
  if (buffer != nullptr && g_watched.compare_exchange_strong(freed, nullptr)) {
    const lumtest::InDouble exempt;
    lumtest::Recorder::Get().Add("free the buffer");
  }
  __real_free(buffer);
}

}  // extern "C"
