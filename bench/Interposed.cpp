// Counts allocations, and lets the configuration client, whose URLs are always https, talk to a
// server without TLS: a handshake's instructions are so many, and differ so much from one to the
// next, that the client's own would not be seen among them.

#include "Interposed.h"

#include <curl/curl.h>
#include <dlfcn.h>

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

}  // extern "C"

namespace {

std::size_t g_allocations = 0;

}  // namespace

namespace lumbench {

std::size_t Allocations() {
  return g_allocations;
}

}  // namespace lumbench

extern "C" {

void* malloc(std::size_t size) {
  ++g_allocations;
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  ++g_allocations;
  return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
  ++g_allocations;
  return __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  ++g_allocations;
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  ++g_allocations;
  *memory = __libc_memalign(alignment, size);
  return *memory == nullptr ? 12 : 0;  // ENOMEM
}

#undef curl_easy_setopt

// Every value is passed the way a pointer is, on the 64-bit machines that this runs on.
CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  using Setopt = CURLcode (*)(CURL*, CURLoption, ...);
  static const auto next = reinterpret_cast<Setopt>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
  va_list arguments;
  va_start(arguments, option);
  void* value = va_arg(arguments, void*);
  va_end(arguments);
  if (option == CURLOPT_URL && std::strncmp(static_cast<const char*>(value), "https:", 6) == 0) {
    char url[256];
    std::memcpy(url, "http", 4);
    std::strcpy(url + 4, static_cast<const char*>(value) + 5);
    return next(handle, option, url);
  }
  return next(handle, option, value);
}

}  // extern "C"
