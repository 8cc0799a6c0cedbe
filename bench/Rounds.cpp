// Measures candidates in turns.

#include "Rounds.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

namespace lumbench {

namespace {

using Clock = std::chrono::steady_clock;

struct Cost {
  std::vector<double> wall;
  std::vector<double> cpu;
};

double CpuSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void Slice(const Candidate& candidate, const Plan& plan, Cost& cost) {
  std::atomic<long> done{0};
  const double cpuBefore = CpuSeconds();
  const Clock::time_point start = Clock::now();
  const auto work = [&](int thread) {
    const Clock::time_point end = start + std::chrono::duration_cast<Clock::duration>(
                                              std::chrono::duration<double>(plan.seconds));
    long mine = 0;
    do {
      if (!candidate.run(thread)) {
        std::fprintf(stderr, "%s failed\n", candidate.name.c_str());
        std::_Exit(1);
      }
      ++mine;
    } while (Clock::now() < end);
    done += mine;
  };
  if (plan.threads == 1) {
    work(0);
  } else {
    std::vector<std::thread> threads;
    for (int i = 0; i < plan.threads; ++i) {
      threads.emplace_back(work, i);
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  const std::chrono::duration<double> taken = Clock::now() - start;
  const auto pieces = static_cast<double>(done.load());
  cost.wall.push_back(taken.count() / pieces);
  cost.cpu.push_back((CpuSeconds() - cpuBefore) / pieces);
}

void PrintNumbers(const char* name, const std::vector<double>& numbers) {
  std::printf(", \"%s\": [", name);
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    std::printf("%s%.9g", i == 0 ? "" : ", ", numbers[i]);
  }
  std::printf("]");
}

}  // namespace

void Measure(const std::string& section, const std::string& name, double bytes, const Plan& plan,
             const std::vector<Candidate>& candidates) {
  for (const Candidate& candidate : candidates) {
    if (!candidate.run(0)) {  // warm
      std::fprintf(stderr, "%s: %s failed\n", name.c_str(), candidate.name.c_str());
      std::_Exit(1);
    }
  }
  std::vector<Cost> costs(candidates.size());
  for (int round = 0; round < plan.rounds; ++round) {
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      Slice(candidates[i], plan, costs[i]);
    }
  }
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    std::printf(
        "{\"section\": \"%s\", \"case\": \"%s\", \"candidate\": \"%s\", \"threads\": %d, "
        "\"bytes\": %.0f",
        section.c_str(), name.c_str(), candidates[i].name.c_str(), plan.threads,
        candidates[i].bytes > 0 ? candidates[i].bytes : bytes);
    PrintNumbers("wall", costs[i].wall);
    PrintNumbers("cpu", costs[i].cpu);
    std::printf("}\n");
  }
  std::fflush(stdout);
}

}  // namespace lumbench
