// The ring of last events.
#include "Events.h"

#include <openssl/rand.h>

#include <LumJson.h>

#include <array>
#include <utility>

#include "Text.h"

namespace {

constexpr std::size_t kMostEvents = 200;

std::string RandomName() {
  std::array<unsigned char, 8> bytes = {};
  RAND_bytes(bytes.data(), static_cast<int>(bytes.size()));
  return ToHex(bytes.data(), bytes.size());
}

}  // namespace

Events::Events() : m_run(RandomName()) {}

void Events::Add(Event event) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  event.id = ++m_last;
  m_events.push_back(std::move(event));
  if (m_events.size() > kMostEvents) {
    m_events.pop_front();
  }
}

std::string Events::After(std::uint64_t after) const {
  LumJson::Value document;
  document["run"] = m_run;
  LumJson::Value list = LumJson::Value::Array();
  const std::lock_guard<std::mutex> lock(m_mutex);
  document["last"] = m_last;
  for (const Event& event : m_events) {
    if (event.id <= after) {
      continue;
    }
    LumJson::Value item;
    item["id"] = event.id;
    item["time"] = event.time;
    item["kind"] = event.kind;
    item["method"] = event.method;
    item["path"] = event.path;
    item["text"] = event.text;
    item["status"] = event.status;
    item["bytes"] = event.bytes;
    list.Append(std::move(item));
  }
  document["events"] = std::move(list);
  return document.JsonValueToString();
}
