// The recording double of libcurl, the logger, the network and file-system libraries, the bounded
// copies and the stdio calls that open and close files. A test links it in their place (see
// CMakeLists.txt here), runs one operation and compares what was called, in order, with what should
// have been.
//
// Each call is one event, a line of text:
//   curl_easy_init                          CURLOPT_URL http://127.0.0.1/
//   CURLOPT_HTTPHEADER [A: 1][B: 2]         CURLOPT_TIMEOUT 5
//   CURLOPT_WRITEFUNCTION function          CURLOPT_WRITEDATA pointer
//   CURLOPT_ERRORBUFFER 4096 zero bytes     curl_easy_perform
//   CURLINFO_RESPONSE_CODE                  curl_slist_free_all [A: 1][B: 2]
//   curl_easy_cleanup                       log 1 Get: GET curl init failed
//   memset_s 2048 0 2048                    fopen /tmp/f wb
// Functions and pointers that are null say "null". A watched mutex adds "lock" and "unlock".

#ifndef LUM_TESTING_RECORDER_H
#define LUM_TESTING_RECORDER_H

#include <curl/curl.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace lumtest {

// One call of LumLogger::Log.
struct LogLine {
  std::string file;
  int line = 0;
  std::string function;
  std::string tag;
  std::string detail;
  int level = 0;
  std::string format;
  std::vector<std::string> arguments;  // as the format's conversions print them
  std::string message;
  bool asked = false;  // GetInstance() was called for this very line
};

// One transfer as its handle stood when curl_easy_perform was called.
struct Transfer {
  std::map<CURLoption, std::string> texts;  // string options
  std::map<CURLoption, long long> numbers;  // long and curl_off_t options
  std::map<CURLoption, void*> pointers;     // everything else, functions included
  std::vector<std::string> headers;         // CURLOPT_HTTPHEADER
  std::vector<std::string> resolve;         // CURLOPT_RESOLVE
  std::string body;                         // CURLOPT_POSTFIELDS as sent
  std::string uploaded;                     // what the read callback gave
};

// What the next curl_easy_perform does.
struct Script {
  CURLcode result = CURLE_OK;
  long status = 200;
  std::vector<std::string>
      chunks;             // handed to the write callback, or to standard output without one
  std::string errorText;  // written to the error buffer
  bool reads = true;      // an upload's read callback is called until its end
  std::function<void(const Transfer&)> during;  // called in the middle of the transfer
};

// A double is at work on this thread, not the product (see FailingAllocation.h).
class InDouble {
 public:
  InDouble();
  ~InDouble();
  InDouble(const InDouble&) = delete;
  InDouble& operator=(const InDouble&) = delete;

  static bool IsActive();

  // Called with true when a thread goes from the product into a double, with false when it goes
  // back; null: nothing is. To be set while no other thread is in the product.
  static void SetHook(void (*hook)(bool entering));
};

// A double calls back into the product.
class InProduct {
 public:
  InProduct();
  ~InProduct();
  InProduct(const InProduct&) = delete;
  InProduct& operator=(const InProduct&) = delete;

 private:
  const int m_depth;
};

// What the doubles do; a test sets what it wants otherwise.
struct Answers {
  CURLcode globalInit = CURLE_OK;
  bool failInit = false;  // every curl_easy_init answers null
  bool failFopen = false;
  bool failFflush = false;
  bool failSeek = false;
  int memcpyResult = 0;  // after a copy that worked

  // Answers of the platform libraries.
  bool realPath = true;
  int removeFile = 0;
  int compress = 0;  // CompressFile, ...FilePath, ...FileGroup
  std::function<int(const std::string&, char*, int)> gzip;  // empty: "gz(" + length + ")"
  std::deque<std::string> interfaceNames;  // one a call of GetInterfaceName; then ""
  int localIp = 0;
  std::string localIpv4;
  std::string localIpv6;
  std::set<std::string> validIpv4;
  std::set<std::string> validIpv6;

  // Called by each log statement, for a test that looks at what has been done by then.
  std::function<void(const LogLine&)> onLog;

  // Called by curl_global_cleanup.
  std::function<void()> onGlobalCleanup;

  // Called when a thread is about to lock the watched mutex.
  std::function<void()> onLock;
};

class Recorder : public Answers {
 public:
  static Recorder& Get();

  // Forgets events, scripts and answers, frees the handles and lists that nobody has released;
  // live handles, lists and files start at nothing.
  void Reset();

  std::vector<std::string> Events() const;
  // The events that start with none of `prefixes`, for a test that looks at the others.
  std::vector<std::string> EventsWithout(const std::vector<std::string>& prefixes) const;
  std::vector<LogLine> Logs() const;
  std::vector<Transfer> Transfers() const;

  // Balance: made and not yet released.
  int LiveHandles() const;
  int LiveLists() const;
  int LiveFiles() const { return m_liveFiles; }

  // Frees the lists that are still live, for a test whose subject keeps one on purpose. No event.
  void FreeLists();

  // Scripts, each for the calls to come. Performs without a script succeed with 200 and no body.
  void NextPerform(Script script);
  void FailAppend(int nth) { m_state.failAppend = nth; }  // the nth curl_slist_append from now
  void FailOption(CURLoption option, CURLcode code);      // every setopt of it, which sets nothing
  void FailMalloc(std::size_t size) { m_failMalloc = size; }  // a malloc of exactly this size

  // Records the locks of one mutex; with `fails`, locking it answers EINVAL.
  void WatchMutex(std::mutex* mutex, bool fails = false);

  // --- For the doubles ---
  void Add(std::string event);
  void AddLog(LogLine line);
  void AddTransfer(Transfer transfer);
  Script TakeScript();
  bool AppendFails();
  void AddHandle(std::shared_ptr<void> handle);
  void RemoveHandle(void* handle);
  void AddList(std::shared_ptr<curl_slist> list);
  void RemoveList(curl_slist* list);
  CURLcode OptionResult(CURLoption option) const;
  bool IsWatched(const void* mutex, bool& fails) const;
  // Static: operator new may stand on the malloc that asks for it, the one for this object too.
  inline static std::atomic<std::size_t> m_failMalloc{0};
  std::atomic<int> m_liveFiles{0};

 private:
  // Mutexes are among what is recorded.
  struct SpinLock {
    void lock() {
      while (busy.test_and_set(std::memory_order_acquire)) {
      }
    }
    void unlock() { busy.clear(std::memory_order_release); }
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
  };
  using Guard = std::lock_guard<SpinLock>;

  struct State {
    std::vector<std::string> events;
    std::vector<LogLine> logs;
    std::vector<Transfer> transfers;
    std::deque<Script> scripts;
    std::map<CURLoption, CURLcode> optionResults;
    std::map<void*, std::shared_ptr<void>> handles;
    std::map<curl_slist*, std::shared_ptr<curl_slist>> lists;
    int failAppend = 0;
    const void* mutex = nullptr;
    bool mutexFails = false;
  };

  mutable SpinLock m_busy;
  State m_state;
};

}  // namespace lumtest

#endif  // LUM_TESTING_RECORDER_H
