// Recorder: the events, scripts and balances behind the doubles.

#include "Recorder.h"

#include <algorithm>
#include <utility>

namespace lumtest {

namespace {

void (*g_hook)(bool entering) = nullptr;
thread_local int t_depth = 0;  // doubles that this thread is in

}  // namespace

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
  const Guard guard(m_busy);
  static_cast<Answers&>(*this) = Answers();
  m_state = State();
  m_failMalloc = 0;
  m_liveFiles = 0;
}

std::vector<std::string> Recorder::Events() const {
  const Guard guard(m_busy);
  return m_state.events;
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
  const Guard guard(m_busy);
  return m_state.logs;
}

std::vector<Transfer> Recorder::Transfers() const {
  const Guard guard(m_busy);
  return m_state.transfers;
}

void Recorder::NextPerform(Script script) {
  const Guard guard(m_busy);
  m_state.scripts.push_back(std::move(script));
}

void Recorder::FailOption(CURLoption option, CURLcode code) {
  const Guard guard(m_busy);
  m_state.optionResults[option] = code;
}

void Recorder::WatchMutex(std::mutex* mutex, bool fails) {
  const Guard guard(m_busy);
  m_state.mutex = mutex->native_handle();
  m_state.mutexFails = fails;
}

void Recorder::Add(std::string event) {
  const Guard guard(m_busy);
  m_state.events.push_back(std::move(event));
}

void Recorder::AddLog(LogLine line) {
  const Guard guard(m_busy);
  m_state.events.push_back("log " + std::to_string(line.level) + " " + line.function + ": " +
                           line.message);
  m_state.logs.push_back(std::move(line));
}

void Recorder::AddTransfer(Transfer transfer) {
  const Guard guard(m_busy);
  m_state.transfers.push_back(std::move(transfer));
}

Script Recorder::TakeScript() {
  const Guard guard(m_busy);
  if (m_state.scripts.empty()) {
    return Script();
  }
  Script script = std::move(m_state.scripts.front());
  m_state.scripts.pop_front();
  return script;
}

bool Recorder::AppendFails() {
  const Guard guard(m_busy);
  return m_state.failAppend > 0 && --m_state.failAppend == 0;
}

int Recorder::LiveHandles() const {
  const Guard guard(m_busy);
  return static_cast<int>(m_state.handles.size());
}

int Recorder::LiveLists() const {
  const Guard guard(m_busy);
  return static_cast<int>(m_state.lists.size());
}

void Recorder::AddHandle(std::shared_ptr<void> handle) {
  const Guard guard(m_busy);
  void* const key = handle.get();
  m_state.handles[key] = std::move(handle);
}

void Recorder::RemoveHandle(void* handle) {
  const Guard guard(m_busy);
  if (m_state.handles.erase(handle) == 0) {
    m_state.events.emplace_back("curl_easy_cleanup of no live handle");
  }
}

void Recorder::AddList(std::shared_ptr<curl_slist> list) {
  const Guard guard(m_busy);
  curl_slist* const key = list.get();
  m_state.lists[key] = std::move(list);
}

void Recorder::RemoveList(curl_slist* list) {
  const Guard guard(m_busy);
  if (m_state.lists.erase(list) == 0) {
    m_state.events.emplace_back("curl_slist_free_all of no live list");
  }
}

void Recorder::FreeLists() {
  const Guard guard(m_busy);
  m_state.lists.clear();
}

CURLcode Recorder::OptionResult(CURLoption option) const {
  const Guard guard(m_busy);
  const auto found = m_state.optionResults.find(option);
  return found == m_state.optionResults.end() ? CURLE_OK : found->second;
}

bool Recorder::IsWatched(const void* mutex, bool& fails) const {
  const Guard guard(m_busy);
  fails = m_state.mutexFails;
  return mutex == m_state.mutex && mutex != nullptr;
}

}  // namespace lumtest
