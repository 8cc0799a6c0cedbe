// Recorder: the events, scripts and balances behind the doubles.

#include "Recorder.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace lumtest {

class Recorder::Guard {
 public:
  explicit Guard(const Recorder& recorder) : m_recorder(recorder) {
    while (m_recorder.m_busy.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~Guard() { m_recorder.m_busy.clear(std::memory_order_release); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  const Recorder& m_recorder;
};

Recorder& Recorder::Get() {
  static auto* recorder = new Recorder;
  return *recorder;
}

void Recorder::Reset() {
  const Guard guard(*this);
  m_events.clear();
  m_logs.clear();
  m_transfers.clear();
  m_scripts.clear();
  m_optionResults.clear();
  m_failAppend = 0;
  m_mutex = nullptr;
  m_mutexFails = false;
  m_globalInit = CURLE_OK;
  m_failInit = m_failFopen = m_failFflush = m_failSeek = false;
  m_failMalloc = 0;
  m_memcpyResult = 0;
  m_liveHandles = m_liveLists = m_liveFiles = 0;
  m_lists.clear();
  realPath = true;
  removeFile = 0;
  compress = 0;
  gzip = nullptr;
  interfaceNames.clear();
  localIp = 0;
  localIpv4.clear();
  localIpv6.clear();
  validIpv4.clear();
  validIpv6.clear();
}

std::vector<std::string> Recorder::Events() const {
  const Guard guard(*this);
  return m_events;
}

std::vector<std::string> Recorder::EventsWithout(const std::vector<std::string>& prefixes) const {
  std::vector<std::string> kept = Events();
  const auto left = [&prefixes](const std::string& event) {
    return std::any_of(prefixes.begin(), prefixes.end(), [&event](const std::string& prefix) {
      return event.compare(0, prefix.size(), prefix) == 0;
    });
  };
  kept.erase(std::remove_if(kept.begin(), kept.end(), left), kept.end());
  return kept;
}

std::vector<LogLine> Recorder::Logs() const {
  const Guard guard(*this);
  return m_logs;
}

std::vector<Transfer> Recorder::Transfers() const {
  const Guard guard(*this);
  return m_transfers;
}

void Recorder::NextPerform(Script script) {
  const Guard guard(*this);
  m_scripts.push_back(std::move(script));
}

void Recorder::FailOption(CURLoption option, CURLcode code) {
  const Guard guard(*this);
  m_optionResults[option] = code;
}

void Recorder::WatchMutex(std::mutex* mutex, bool fails) {
  const Guard guard(*this);
  m_mutex = mutex->native_handle();
  m_mutexFails = fails;
}

void Recorder::Add(std::string event) {
  const Guard guard(*this);
  m_events.push_back(std::move(event));
}

void Recorder::AddLog(LogLine line) {
  const Guard guard(*this);
  m_events.push_back("log " + std::to_string(line.level) + " " + line.function + ": " +
                     line.message);
  m_logs.push_back(std::move(line));
}

void Recorder::AddTransfer(Transfer transfer) {
  const Guard guard(*this);
  m_transfers.push_back(std::move(transfer));
}

Script Recorder::TakeScript() {
  const Guard guard(*this);
  if (m_scripts.empty()) {
    return Script();
  }
  Script script = std::move(m_scripts.front());
  m_scripts.pop_front();
  return script;
}

bool Recorder::AppendFails() {
  const Guard guard(*this);
  return m_failAppend > 0 && --m_failAppend == 0;
}

void Recorder::AddList(curl_slist* list) {
  const Guard guard(*this);
  m_lists.insert(list);
  ++m_liveLists;
}

void Recorder::RemoveList(curl_slist* list) {
  const Guard guard(*this);
  m_lists.erase(list);
  --m_liveLists;
}

void Recorder::FreeLists() {
  std::set<curl_slist*> lists;
  {
    const Guard guard(*this);
    lists.swap(m_lists);
    m_liveLists = 0;
  }
  for (curl_slist* list : lists) {
    while (list != nullptr) {
      curl_slist* next = list->next;
      std::free(list->data);
      delete list;
      list = next;
    }
  }
}

CURLcode Recorder::OptionResult(CURLoption option) const {
  const Guard guard(*this);
  const auto found = m_optionResults.find(option);
  return found == m_optionResults.end() ? CURLE_OK : found->second;
}

bool Recorder::IsWatched(const void* mutex, bool& fails) const {
  const Guard guard(*this);
  fails = m_mutexFails;
  return mutex == m_mutex && mutex != nullptr;
}

}  // namespace lumtest
