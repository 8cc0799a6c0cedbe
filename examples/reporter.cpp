// A device's program: it takes records, keeps them on disk until the service has them, and reports
// them in compressed batches.
//
//   reporter [OPTION...] URL QUEUE DEVICE
//
//   --interval=SECONDS     from one report to the next (60), on average; a full batch goes at once
//   --first-wait=MS        the bound of the wait after the first failure (1000)
//   --longest-wait=MS      the bound that the waits reach (300000)
//   --batch=RECORDS        the most that one report holds (200)
//   --most=RECORDS         the most that the queue holds (100000)
//
// URL is the service's address, QUEUE an SQLite database that is made when missing and DEVICE the
// access identifier. Each line of standard input is a record, a JSON object of up to 4096 bytes.
// Each is answered by a line on standard output: "accepted ID" when the record is on disk, so that
// a power cut cannot lose it, or "refused REASON". Every accepted record arrives at least once; one
// that arrives again, since the program ended before it knew of the first time, has the same ID.
//
// When its input ends, the program reports what the queue holds and exits. SIGTERM and SIGINT end
// it after the request under way; what the queue holds then is reported after the next start.

#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "backoff.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestRecord = 4096;
constexpr std::size_t kRecordsPerCommit = 16;  // each waits for the disk once

struct Settings {
  std::map<std::string, double> numbers{{"interval", 60},
                                        {"first-wait", 1000},
                                        {"longest-wait", 300000},
                                        {"batch", 200},
                                        {"most", 100000}};
  std::string url;
  std::string queue;
  std::string device;
  long operator[](const char* name) const { return static_cast<long>(numbers.at(name)); }
};

struct Record {
  sqlite3_int64 number;
  std::string text;
};

// What has been accepted and not yet reported, oldest first. For use by any thread. Throws
// std::runtime_error when the database cannot be used, by another reporter's running on it for one.
class Queue {
 public:
  Queue(const std::string& path, long most) : m_most(std::to_string(most)) {
    sqlite3* database = nullptr;
    sqlite3_open(path.c_str(), &database);
    m_database.reset(database);
    // A commit returns when the log is on the disk. Numbers are never given twice, not even after
    // their records are gone, and the queue's name tells them from those of another disk.
    for (const char* sql : {"PRAGMA locking_mode = EXCLUSIVE", "PRAGMA journal_mode = WAL",
                            "PRAGMA synchronous = FULL", "BEGIN EXCLUSIVE",
                            "CREATE TABLE IF NOT EXISTS record"
                            " (number INTEGER PRIMARY KEY AUTOINCREMENT, text TEXT NOT NULL)",
                            "CREATE TABLE IF NOT EXISTS queue (name TEXT NOT NULL)",
                            "INSERT INTO queue SELECT lower(hex(randomblob(8))) WHERE NOT EXISTS "
                            "(SELECT * FROM queue)",
                            "COMMIT"}) {
      Run(sql);
    }
    m_name = Run("SELECT 0, name FROM queue").at(0).text;
  }

  std::string IdOf(const Record& record) const {
    return m_name + "-" + std::to_string(record.number);
  }

  // Adds records in one commit and gives them their numbers: 0 where the queue has no room, or for
  // all of them when the disk has none.
  void Add(std::vector<Record>& records) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    try {
      Run("BEGIN");
      for (Record& record : records) {
        // Records go in at one end and out at the other: no number between the two is missing.
        Run("INSERT INTO record (text) SELECT ? WHERE coalesce((SELECT max(number) FROM record) -"
            " (SELECT min(number) FROM record) + 1, 0) < " +
                m_most,
            record.text);
        const bool added = sqlite3_changes(m_database.get()) == 1;
        record.number = added ? sqlite3_last_insert_rowid(m_database.get()) : 0;
      }
      Run("COMMIT");
    } catch (const std::runtime_error& error) {
      std::fprintf(stderr, "reporter: %s\n", error.what());
      sqlite3_exec(m_database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
      for (Record& record : records) {
        record.number = 0;
      }
    }
  }

  std::vector<Record> Oldest(long count) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return Run("SELECT number, text FROM record ORDER BY number LIMIT " + std::to_string(count));
  }

  void RemoveUpTo(const Record& record) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Run("DELETE FROM record WHERE number <= " + std::to_string(record.number));
  }

 private:
  // Runs one statement, its parameter, if any, being `text`.
  std::vector<Record> Run(const std::string& sql, const std::string& text = std::string()) {
    sqlite3_stmt* prepared = nullptr;
    int result = sqlite3_prepare_v2(m_database.get(), sql.c_str(), -1, &prepared, nullptr);
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owner(prepared, sqlite3_finalize);
    std::vector<Record> rows;
    if (result == SQLITE_OK) {
      sqlite3_bind_text(prepared, 1, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
      while ((result = sqlite3_step(prepared)) == SQLITE_ROW) {
        const unsigned char* column = sqlite3_column_text(prepared, 1);
        rows.push_back({sqlite3_column_int64(prepared, 0),
                        column == nullptr ? "" : reinterpret_cast<const char*>(column)});
      }
    }
    if (result != SQLITE_DONE) {
      throw std::runtime_error(sqlite3_errmsg(m_database.get()));
    }
    return rows;
  }

  const std::string m_most;
  std::mutex m_mutex;
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> m_database{nullptr, sqlite3_close};
  std::string m_name;
};

// Asks for a token when there is none, and for a new one when the old one has a quarter of its life
// left.
class Token {
 public:
  Token(LumCurlOrvOps& client, const Settings& settings) : m_client(client), m_settings(settings) {}

  // Empty when the service gives none.
  std::string Get() {
    if (m_token.empty() || Clock::now() >= m_renewal) {
      LumJson::Value request;
      request["accessId"] = m_settings.device;
      const std::string url = m_settings.url + "/token";
      const LumJson::Value answer = m_token.empty() ? m_client.GetToken(url, request)
                                                    : m_client.RefreshToken(url, request, m_token);
      m_token = answer["token"].AsString();
      m_renewal =
          Clock::now() + std::chrono::milliseconds(answer["expiresIn"].AsInt64() * 1000 * 3 / 4);
    }
    return m_token;
  }

  void Forget() { m_token.clear(); }

 private:
  LumCurlOrvOps& m_client;
  const Settings& m_settings;
  std::string m_token;
  Clock::time_point m_renewal;
};

// Reports what the queue holds. Run is for one thread, the others are for any.
class Sender {
 public:
  Sender(Queue& queue, const Settings& settings)
      : m_queue(queue), m_settings(settings), m_token(m_client, settings) {
    m_client.CurlGlobalInit();
  }

  // What Run is to do: look whether a batch is full, report all that is left and return, or return
  // after the request under way.
  enum Order { kLook, kFinish, kStop };
  void Tell(Order order) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_woken = true;
    m_order = std::max(m_order, order);
    m_changed.notify_all();
  }

  void Run() {
    Backoff backoff{Backoff::Wait(m_settings["first-wait"]),
                    Backoff::Wait(m_settings["longest-wait"]), m_random()};
    long limit = m_settings["batch"];
    Clock::time_point due = Clock::now() + Interval(0);
    for (Order order = kLook; order != kStop; order = Ordered()) {
      const std::vector<Record> records = m_queue.Oldest(limit);
      if (records.empty() && order == kFinish) {
        return;
      }
      const bool full = static_cast<long>(records.size()) == limit;
      if (records.empty() || (!full && order != kFinish && Clock::now() < due)) {
        WaitUntil(records.empty() ? Clock::now() + std::chrono::hours(1) : due, true);
      } else if (Report(records)) {
        m_queue.RemoveUpTo(records.back());
        std::fprintf(stderr, "reported %zu\n", records.size());
        backoff.Reset();
        limit = std::min(limit * 2, m_settings["batch"]);
        due = Clock::now() + Interval(0.5);
      } else {
        // What did not get through within the time limit may do so in two halves.
        limit = std::max(limit / 2, 1L);
        WaitUntil(Clock::now() + backoff.Next(), false);
      }
    }
  }

 private:
  // The interval times a number between `least` and one and a half, so that devices that started
  // together do not report together.
  Clock::duration Interval(double least) {
    std::uniform_real_distribution<double> factor(least, 1.5);
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(m_settings.numbers.at("interval") * factor(m_random)));
  }

  bool Report(const std::vector<Record>& records) {
    const std::string token = m_token.Get();
    if (token.empty() || Ordered() == kStop) {
      return false;
    }
    LumJson::Value document;
    document["accessId"] = m_settings.device;
    for (const Record& record : records) {
      LumJson::Value entry;
      entry["id"] = m_queue.IdOf(record);
      entry["data"].Parse(record.text);
      document["records"].Append(std::move(entry));
    }
    if (m_client.ReportDataWithGzip(m_settings.url + "/report", document, token,
                                    m_settings.device) == 0) {
      return true;
    }
    // The service says in words that it no longer takes the token.
    LumJson::Value refusal;
    refusal.Parse(m_client.GetLastErrorBody());
    if (refusal["error"].AsString().find("token") != std::string::npos) {
      m_token.Forget();
    }
    return false;
  }

  Order Ordered() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_order;
  }

  // New records must not bring the next try after a failure forward: that wait only kStop ends.
  void WaitUntil(Clock::time_point end, bool forRecords) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_until(lock, end, [&] { return m_order == kStop || (forRecords && m_woken); });
    m_woken = false;
  }

  Queue& m_queue;
  const Settings& m_settings;
  std::mt19937_64 m_random{std::random_device()()};
  LumCurlOrvOps m_client;
  Token m_token;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_woken = false;
  Order m_order = kLook;
};

// Answers the whole lines at the beginning of `input`, in their order, and takes them away.
void Accept(std::string& input, Queue& queue) {
  std::vector<Record> records;
  std::size_t start = 0;
  for (std::size_t end = 0; (end = input.find('\n', start)) != std::string::npos; start = end + 1) {
    LumJson::Value record;
    const bool good = end - start <= kLongestRecord &&
                      record.Parse(input.substr(start, end - start)) && record.IsObject();
    if (good) {
      records.push_back({0, record.JsonValueToString()});
    }
    if (!good || records.size() == kRecordsPerCommit || input.find('\n', end + 1) == input.npos) {
      queue.Add(records);
      for (const Record& added : records) {
        std::puts(added.number == 0 ? "refused no room"
                                    : ("accepted " + queue.IdOf(added)).c_str());
      }
      records.clear();
    }
    if (!good) {
      std::puts("refused no JSON object of up to 4096 bytes");
    }
    std::fflush(stdout);
  }
  input.erase(0, start);
}

// Accepts records until a signal arrives.
void Read(int signals, Queue& queue, Sender& sender) {
  std::string input;
  pollfd wanted[] = {{signals, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  while (poll(wanted, 2, -1) < 0 || wanted[0].revents == 0) {
    char buffer[65536];
    const ssize_t got = wanted[1].revents == 0 ? 0 : read(STDIN_FILENO, buffer, sizeof(buffer));
    if (got > 0) {
      input.append(buffer, static_cast<std::size_t>(got));
      Accept(input, queue);
    } else {
      wanted[1].fd = -1;  // poll passes over it
    }
    sender.Tell(got > 0 ? Sender::kLook : Sender::kFinish);
  }
  sender.Tell(Sender::kStop);
}

// False when the command line is none.
bool Parse(int argc, char** argv, Settings& settings) {
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const std::size_t end = word.find('=');
    if (word.compare(0, 2, "--") != 0) {
      words.push_back(word);
    } else if (end == std::string::npos || settings.numbers.count(word.substr(2, end - 2)) == 0) {
      return false;
    } else {
      settings.numbers[word.substr(2, end - 2)] = std::atof(word.c_str() + end + 1);
    }
  }
  words.resize(3);
  settings.url = words[0];
  settings.queue = words[1];
  settings.device = words[2];
  return !settings.device.empty() && settings["batch"] >= 1;
}

// Reads records until it ends.
struct Reader {
  std::thread thread;
  ~Reader() {
    kill(getpid(), SIGTERM);
    thread.join();
  }
};

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  if (!Parse(argc, argv, settings)) {
    std::fputs("usage: reporter [--NAME=NUMBER...] URL QUEUE DEVICE\n", stderr);
    return 2;
  }
  // Before there are threads: all of them leave the signals to the descriptor.
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  const int signals = signalfd(-1, &ends, SFD_CLOEXEC);
  if (signals < 0 || LumCurlHttp::CurlGlobalInit() != 0) {
    std::fputs("reporter: no signals, or no libcurl\n", stderr);
    return 1;
  }
  try {
    Queue queue(settings.queue, settings["most"]);
    Sender sender(queue, settings);
    const Reader reader{std::thread(Read, signals, std::ref(queue), std::ref(sender))};
    sender.Run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "reporter: %s\n", error.what());
    return 1;
  }
}
