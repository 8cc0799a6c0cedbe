// Helpers over libcurl's easy interface that the three clients share.

#include "CurlEasy.h"

#include <cstdint>
#include <cstring>

#include "LumBoundsCheck.h"

namespace lumhttp {

void AppendLine(HeaderList& list, const char* line) {
  curl_slist* longer = curl_slist_append(list.get(), line);
  if (longer == nullptr) {
    throw std::bad_alloc();
  }
  (void)list.release();  // `longer` is the same list, or its first node
  list.reset(longer);
}

void KeepEmptyValues(const HeaderList& list) {
  for (curl_slist* node = list.get(); node != nullptr; node = node->next) {
    char* colon = std::strchr(node->data, ':');
    if (colon != nullptr && colon[1] != '\0' && colon[1 + std::strspn(colon + 1, " \t")] == '\0' &&
        colon != node->data) {
      colon[0] = ';';
      colon[1] = '\0';
    }
  }
}

HeaderList JsonHeaderLines() {
  HeaderList list;
  AppendLine(list, "Content-Type: application/json");
  AppendLine(list, "charsets: utf-8");
  return list;
}

bool EasyTransfer::Init() {
  handle.reset(curl_easy_init());
  return handle != nullptr;
}

void EasyTransfer::ClearErrorBuffer() {
  memset_s(errorBuffer, sizeof(errorBuffer), 0, sizeof(errorBuffer));
}

bool EasyTransfer::Perform() {
  outcome = curl_easy_perform(handle.get());
  curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
  if (result.failure) {
    std::rethrow_exception(result.failure);
  }
  return outcome == CURLE_OK;
}

std::size_t WriteToString(char* data, std::size_t size, std::size_t count, void* user) {
  if (data == nullptr || user == nullptr) {
    return 0;
  }
  auto* result = static_cast<HttpResult*>(user);
  try {
    result->body.append(data, size * count);
  } catch (...) {
    result->failure = std::current_exception();
    return 0;
  }
  return static_cast<std::uint32_t>(size * count);
}

std::string FailureText(const char* prefix, const char* errorText) {
  std::string text(prefix);
  text += errorText;
  text += " .";
  return text;
}

}  // namespace lumhttp
