// A gateway, or the devices themselves: one process, many objects and threads over the public
// classes.
//
//   LumBenchFleet load get|report|gzip|upload URL COUNT WHAT CERTIFICATE KEY
//   LumBenchFleet devices URL DEVICES INTERVAL SECONDS fixed|jittered at-once|fixed|backoff FIRST
//                 LONGEST
//
// load sends COUNT requests from four objects, a thread each, and prints a line of JSON: processor
// seconds, and how many failed. WHAT is the size of a report's text, or the file that is uploaded;
// the certificate may be "".
//
// devices is a fleet of clients that each report every INTERVAL seconds for SECONDS seconds, a GET
// for a report: all within the first tenth of it, or at moments of their own (fixed, jittered). One
// that fails tries again at once, after FIRST seconds, or with the waits of examples/backoff.h. It
// prints a line of JSON with the requests begun, done, failed and recovered (done after a failure)
// in each tenth of a second.

#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>
#include <LumLogger.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "../../examples/backoff.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

Clock::duration Exactly(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
}

double ProcessorSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// A report whose styled text has about `bytes` bytes: what a device measures, which compresses as
// such reports do.
LumJson::Value Report(std::size_t bytes) {
  std::mt19937 random(1);
  LumJson::Value document;
  document["accessId"] = "vehicle-00017";
  for (std::size_t size = 60; size < bytes;) {
    LumJson::Value record;
    record["time"] = static_cast<std::int64_t>(1700000000000 + random() % 1000000);
    record["speed"] = static_cast<int>(random() % 2000) / 10.0;
    record["position"] = static_cast<int>(random() % 18000000) / 100000.0;
    record["state"] = random() % 5 == 0 ? "standing" : "driving";
    size += record.ToStyledString().size() + 30;  // indentation
    document["records"].Append(std::move(record));
  }
  return document;
}

using Operation = std::function<bool(LumCurlOrvOps&)>;

// `what` is the size of a report's text, or the file that is uploaded.
Operation OperationOf(const std::string& name, const std::string& url, const std::string& what) {
  if (name == "get") {
    return [url](LumCurlOrvOps& client) {
      int status = 0;
      client.Get(url, {}, status);
      return status == 200;
    };
  }
  if (name == "upload") {
    return [url, what](LumCurlOrvOps& client) { return client.UploadLog(url, what, 600) == 0; };
  }
  const LumJson::Value document = Report(std::stoul(what));
  if (name == "report") {
    return [url, document](LumCurlOrvOps& client) {
      return client.ReportData(url, document, "token", 600U, "") == 0;
    };
  }
  return [url, document](LumCurlOrvOps& client) {
    return client.ReportDataWithGzip(url, document, "token", "vehicle-00017") == 0;
  };
}

int Load(const Operation& operation, long count, const std::string& certificate,
         const std::string& key) {
  std::array<LumCurlOrvOps, 4> clients;
  for (LumCurlOrvOps& client : clients) {
    client.CurlGlobalInit();
    if (!certificate.empty()) {
      unsigned char none = 0;
      client.SetSslInfo("", certificate, key, &none, 0);
    }
  }
  std::atomic<long> left{count};
  std::atomic<long> failed{0};
  const double processorBefore = ProcessorSeconds();
  std::vector<std::thread> threads;
  for (LumCurlOrvOps& client : clients) {
    threads.emplace_back([&] {
      while (left.fetch_sub(1) > 0) {
        failed += operation(client) ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::printf("{\"cpu\": %.6f, \"failed\": %ld}\n", ProcessorSeconds() - processorBefore,
              failed.load());
  return 0;
}

// What happened in each tenth of a second.
struct Moments {
  explicit Moments(double seconds) : count(static_cast<std::size_t>(seconds * 10) + 1) {}
  void Add(Clock::duration at) {
    const auto index = static_cast<std::size_t>(Seconds(at).count() * 10);
    if (index < count.size()) {
      ++count[index];
    }
  }
  void Print(const char* name, const char* behind) const {
    std::printf("\"%s\": [", name);
    for (std::size_t i = 0; i < count.size(); ++i) {
      std::printf("%s%ld", i == 0 ? "" : ", ", count[i].load());
    }
    std::printf("]%s", behind);
  }
  std::vector<std::atomic<long>> count;
};

struct Happened {
  explicit Happened(double seconds)
      : begun(seconds), done(seconds), failed(seconds), recovered(seconds) {}
  Moments begun;
  Moments done;
  Moments failed;
  Moments recovered;
};

struct Fleet {
  std::string url;
  double interval;
  double seconds;
  bool jittered;
  std::string again;
  double first;
  double longest;
};

// One device, from `start` to the fleet's end.
void Live(const Fleet& fleet, unsigned number, Clock::time_point start, Happened& happened) {
  std::mt19937_64 random(number);
  const auto between = [&](double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random);
  };
  const auto milliseconds = [](double seconds) {
    return Backoff::Wait(static_cast<Backoff::Wait::rep>(seconds * 1000));
  };
  LumCurlOrvOps client;
  client.CurlGlobalInit();
  Backoff backoff(milliseconds(fleet.first), milliseconds(fleet.longest), random());
  const double phase = between(0, fleet.jittered ? fleet.interval : fleet.interval / 10);
  Clock::time_point next = start + Exactly(phase);
  const Clock::time_point end = start + Exactly(fleet.seconds);
  bool troubled = false;
  while (next < end) {
    std::this_thread::sleep_until(next);
    happened.begun.Add(Clock::now() - start);
    int status = 0;
    client.Get(fleet.url, {}, status);
    const Clock::time_point now = Clock::now();
    (status == 200 ? happened.done : happened.failed).Add(now - start);
    if (status != 200) {
      troubled = true;
      next = now;
      if (fleet.again == "fixed") {
        next += Exactly(fleet.first);
      } else if (fleet.again == "backoff") {
        next += backoff.Next();
      }
      continue;
    }
    if (troubled) {
      happened.recovered.Add(now - start);
    }
    troubled = false;
    backoff.Reset();
    if (fleet.jittered) {
      next = now + Exactly(fleet.interval * between(0.5, 1.5));
    } else {  // at the same moment of each interval; those that have passed are left out
      const double passed = Seconds(now - start).count() - phase;
      next = start + Exactly(phase + (std::floor(passed / fleet.interval) + 1) * fleet.interval);
    }
  }
}

int Devices(const Fleet& fleet, unsigned count) {
  Happened happened(fleet.seconds);
  const Clock::time_point start = Clock::now() + std::chrono::seconds(1);
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < count; ++i) {
    threads.emplace_back(Live, std::cref(fleet), i, start, std::ref(happened));
  }
  std::this_thread::sleep_until(start);
  std::printf("started\n");
  std::fflush(stdout);
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::printf("{");
  happened.begun.Print("begun", ", ");
  happened.done.Print("done", ", ");
  happened.failed.Print("failed", ", ");
  happened.recovered.Print("recovered", "}\n");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  LumCurlHttp::CurlGlobalInit();
  LumLogger::GetInstance().SetLevel(LumLogger::kSilent);
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 7 && words[0] == "load") {
    return Load(OperationOf(words[1], words[2], words[4]), std::stol(words[3]), words[5], words[6]);
  }
  if (words.size() == 9 && words[0] == "devices") {
    return Devices({words[1], std::stod(words[3]), std::stod(words[4]), words[5] == "jittered",
                    words[6], std::stod(words[7]), std::stod(words[8])},
                   static_cast<unsigned>(std::stoul(words[2])));
  }
  std::fprintf(stderr, "usage: see the head of bench/fleet/Client.cpp\n");
  return 2;
}
