// Recorder: the events, scripts and balances behind the doubles.

#include "Recorder.h"

#include <algorithm>
#include <utility>

namespace lumtest {

namespace {

void (*g_hook)(bool entering) = nullptr;
thread_local int t_depth = 0;  // doubles that this thread is in

}  // namespace

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

InDouble::InDouble() {
  if (t_depth++ == 0 && g_hook != nullptr) {
    g_hook(true);
  }
}

InDouble::~InDouble() {
  if (--t_depth == 0 && g_hook != nullptr) {
    g_hook(false);
  }
}

bool InDouble::IsActive() {
  return t_depth > 0;
}

void InDouble::SetHook(void (*hook)(bool entering)) {
  g_hook = hook;
}

InProduct::InProduct() : m_depth(t_depth) {
  t_depth = 0;
  if (m_depth > 0 && g_hook != nullptr) {
    g_hook(false);
  }
}

InProduct::~InProduct() {
  if (m_depth > 0 && g_hook != nullptr) {
    g_hook(true);
  }
  t_depth = m_depth;
}

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
  onLock = nullptr;
  m_globalInit = CURLE_OK;
  m_failInit = m_failFopen = m_failFflush = m_failSeek = false;
  m_failMalloc = 0;
  m_memcpyResult = 0;
  m_handles.clear();
  m_lists.clear();
  m_liveFiles = 0;
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
  onLog = nullptr;
  onGlobalCleanup = nullptr;
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

int Recorder::LiveHandles() const {
  const Guard guard(*this);
  return static_cast<int>(m_handles.size());
}

int Recorder::LiveLists() const {
  const Guard guard(*this);
  return static_cast<int>(m_lists.size());
}

void Recorder::AddHandle(std::shared_ptr<void> handle) {
  const Guard guard(*this);
  void* const key = handle.get();
  m_handles[key] = std::move(handle);
}

void Recorder::RemoveHandle(void* handle) {
  const Guard guard(*this);
  if (m_handles.erase(handle) == 0) {
    m_events.emplace_back("curl_easy_cleanup of no live handle");
  }
}

void Recorder::AddList(std::shared_ptr<curl_slist> list) {
  const Guard guard(*this);
  curl_slist* const key = list.get();
  m_lists[key] = std::move(list);
}

void Recorder::RemoveList(curl_slist* list) {
  const Guard guard(*this);
  if (m_lists.erase(list) == 0) {
    m_events.emplace_back("curl_slist_free_all of no live list");
  }
}

void Recorder::FreeLists() {
  const Guard guard(*this);
  m_lists.clear();
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
