// libcurl's functions as the product imports them, recorded.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Recorder.h"

#undef curl_easy_setopt
#undef curl_easy_getinfo

using lumtest::InDouble;
using lumtest::InProduct;
using lumtest::Recorder;
using lumtest::Script;
using lumtest::Transfer;

namespace {

constexpr std::size_t kErrorBufferSize = 4096;  // of every transfer of the product
constexpr std::size_t kReadSize = 65536;

struct Handle {
  Transfer transfer;
  long status = 0;
};

void DeleteList(curl_slist* list) {
  while (list != nullptr) {
    curl_slist* next = list->next;
    std::free(list->data);
    delete list;
    list = next;
  }
}

std::vector<std::string> Lines(const curl_slist* list) {
  std::vector<std::string> lines;
  for (; list != nullptr; list = list->next) {
    lines.emplace_back(list->data);
  }
  return lines;
}

std::string Render(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += "[" + line + "]";
  }
  return text.empty() ? "null" : text;
}

std::string RenderList(const curl_slist* list) {
  return Render(Lines(list));
}

// Stores a pointer option; gives its text in the event.
std::string StorePointer(Transfer& transfer, CURLoption option, void* pointer) {
  const curl_easytype type = curl_easy_option_by_id(option)->type;
  if (type == CURLOT_STRING) {
    const char* text = static_cast<const char*>(pointer);
    if (text == nullptr) {
      return "null";
    }
    transfer.texts[option] = text;  // libcurl copies these
    return text;
  }
  transfer.pointers[option] = pointer;
  if (type == CURLOT_SLIST) {
    return RenderList(static_cast<const curl_slist*>(pointer));
  }
  if (pointer == nullptr) {
    return "null";
  }
  if (option == CURLOPT_ERRORBUFFER) {
    const char* buffer = static_cast<const char*>(pointer);
    for (std::size_t i = 0; i < kErrorBufferSize; ++i) {
      if (buffer[i] != 0) {
        return "not zeroed";
      }
    }
    return "4096 zero bytes";
  }
  return "pointer";
}

// What libcurl takes from the handle when the transfer starts.
void Snapshot(Transfer& transfer) {
  const auto pointer = [&transfer](CURLoption option) {
    const auto found = transfer.pointers.find(option);
    return found == transfer.pointers.end() ? nullptr : found->second;
  };
  transfer.headers = Lines(static_cast<const curl_slist*>(pointer(CURLOPT_HTTPHEADER)));
  transfer.resolve = Lines(static_cast<const curl_slist*>(pointer(CURLOPT_RESOLVE)));
  if (const auto* body = static_cast<const char*>(pointer(CURLOPT_POSTFIELDS))) {
    transfer.body.assign(body,
                         static_cast<std::size_t>(transfer.numbers.at(CURLOPT_POSTFIELDSIZE)));
  }
}

void ReadUpload(Transfer& transfer) {
  const auto read =
      reinterpret_cast<curl_read_callback>(transfer.pointers.at(CURLOPT_READFUNCTION));
  std::vector<char> buffer(kReadSize);
  void* const source = transfer.pointers.at(CURLOPT_READDATA);
  const auto readSome = [&] {
    const InProduct calling;
    return read(buffer.data(), 1, buffer.size(), source);
  };
  while (const std::size_t n = readSome()) {
    transfer.uploaded.append(buffer.data(), n);
  }
}

// Gives the reply to the write callback; libcurl's default target is standard output.
CURLcode WriteReply(const Transfer& transfer, const Script& script) {
  const auto function = transfer.pointers.find(CURLOPT_WRITEFUNCTION);
  for (std::string chunk : script.chunks) {
    if (function == transfer.pointers.end()) {
      Recorder::Get().Add("reply to standard output: " + chunk);
      continue;
    }
    const auto write = reinterpret_cast<curl_write_callback>(function->second);
    void* const target = transfer.pointers.at(CURLOPT_WRITEDATA);
    const InProduct calling;
    if (write(chunk.data(), 1, chunk.size(), target) != chunk.size()) {
      return CURLE_WRITE_ERROR;
    }
  }
  return script.result;
}

}  // namespace

extern "C" {

CURLcode curl_global_init(long flags) {
  const InDouble exempt;
  Recorder::Get().Add("curl_global_init " + std::to_string(flags));
  return Recorder::Get().globalInit;
}

void curl_global_cleanup() {
  const InDouble exempt;
  Recorder::Get().Add("curl_global_cleanup");
  if (Recorder::Get().onGlobalCleanup) {
    Recorder::Get().onGlobalCleanup();
  }
}

CURL* curl_easy_init() {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  recorder.Add("curl_easy_init");
  if (recorder.failInit) {
    return nullptr;
  }
  const auto handle = std::make_shared<Handle>();
  recorder.AddHandle(handle);
  return reinterpret_cast<CURL*>(handle.get());
}

CURLcode curl_easy_setopt(CURL* curl, CURLoption option, ...) {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  Transfer& transfer = reinterpret_cast<Handle*>(curl)->transfer;
  const CURLcode result = recorder.OptionResult(option);
  Transfer unset;
  Transfer& target = result == CURLE_OK ? transfer : unset;
  std::string value;
  va_list arguments;
  va_start(arguments, option);
  if (option < CURLOPTTYPE_OBJECTPOINT) {
    const long number = va_arg(arguments, long);
    target.numbers[option] = number;
    value = std::to_string(number);
  } else if (option < CURLOPTTYPE_FUNCTIONPOINT) {
    value = StorePointer(target, option, va_arg(arguments, void*));
  } else if (option < CURLOPTTYPE_OFF_T) {
    void* function = va_arg(arguments, void*);
    target.pointers[option] = function;
    value = function == nullptr ? "null" : "function";
  } else {
    const curl_off_t number = va_arg(arguments, curl_off_t);
    target.numbers[option] = number;
    value = std::to_string(number);
  }
  va_end(arguments);
  recorder.Add(std::string("CURLOPT_") + curl_easy_option_by_id(option)->name + " " + value);
  return result;
}

CURLcode curl_easy_perform(CURL* curl) {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  auto* handle = reinterpret_cast<Handle*>(curl);
  const Script script = recorder.TakeScript();
  recorder.Add("curl_easy_perform");
  Snapshot(handle->transfer);
  if (script.reads && handle->transfer.numbers.count(CURLOPT_UPLOAD) != 0) {
    ReadUpload(handle->transfer);
  }
  if (script.during) {
    script.during(handle->transfer);
  }
  if (!script.errorText.empty()) {
    std::strcpy(static_cast<char*>(handle->transfer.pointers.at(CURLOPT_ERRORBUFFER)),
                script.errorText.c_str());
  }
  handle->status = script.status;
  const CURLcode result = WriteReply(handle->transfer, script);
  recorder.AddTransfer(handle->transfer);
  return result;
}

CURLcode curl_easy_getinfo(CURL* curl, CURLINFO info, ...) {
  const InDouble exempt;
  if (info != CURLINFO_RESPONSE_CODE) {
    Recorder::Get().Add("CURLINFO " + std::to_string(info));
    return CURLE_UNKNOWN_OPTION;
  }
  Recorder::Get().Add("CURLINFO_RESPONSE_CODE");
  va_list arguments;
  va_start(arguments, info);
  *va_arg(arguments, long*) = reinterpret_cast<Handle*>(curl)->status;
  va_end(arguments);
  return CURLE_OK;
}

// A text of the double's own, so that a test sees where it went.
const char* curl_easy_strerror(CURLcode code) {
  static thread_local char text[32];
  std::snprintf(text, sizeof(text), "strerror %d", static_cast<int>(code));
  return text;
}

void curl_easy_cleanup(CURL* curl) {
  const InDouble exempt;
  Recorder::Get().Add("curl_easy_cleanup");
  Recorder::Get().RemoveHandle(curl);
}

curl_slist* curl_slist_append(curl_slist* list, const char* line) {
  const InDouble exempt;
  Recorder& recorder = Recorder::Get();
  recorder.Add(std::string("curl_slist_append ") + line);
  if (recorder.AppendFails()) {
    return nullptr;
  }
  auto* node = new curl_slist{strdup(line), nullptr};
  if (list == nullptr) {
    recorder.AddList({node, &DeleteList});
    return node;
  }
  curl_slist* last = list;
  while (last->next != nullptr) {
    last = last->next;
  }
  last->next = node;
  return list;
}

void curl_slist_free_all(curl_slist* list) {
  const InDouble exempt;
  Recorder::Get().Add("curl_slist_free_all " + RenderList(list));
  if (list != nullptr) {
    Recorder::Get().RemoveList(list);
  }
}

}  // extern "C"
