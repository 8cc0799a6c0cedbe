// Every occasion of every fault, and what each run has to leave.

#include "Trial.h"

#include <curl/curl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "Judge.h"
#include "support/Process.h"

namespace lumtest {
namespace {

// Libraries keep what they build once: it counts as lost only if it is lost every time. OpenSSL's
// queue of errors has 16 places that fill up.
constexpr int kRepeats = 24;

// How far a trial is, in memory that all processes share: one that dies leaves behind where it was.
struct Progress {
  // The fault that is on: its place among the trial's, and the occasion.
  std::size_t fault = 0;
  std::size_t nth = 1;
  FaultRecord record;

  Result result;  // so far
};

// Counts a bad run, at the fault that is on, and writes it to `report` unless it is excused.
void CountBad(const Trial& trial, Progress& progress, const std::string& reason, int report) {
  if (IsExcused(reason, progress.record)) {
    ++progress.result.excused;
    return;
  }
  ++progress.result.bad;
  (void)dprintf(report, "BAD: %s, %s, %s %zu: %s\n%s", trial.subject.name.c_str(),
                NameOf(trial.scenario), trial.faults()[progress.fault]->Name().c_str(),
                progress.nth, reason.c_str(), Describe(progress.record).c_str());
}

// A server beyond the reach of what a fault breaks in this process: tells its URL and stays.
int ServeForEver() {
  WireServer server;
  server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  std::cout << server.Url() << std::endl;
  while (true) {
    pause();
  }
}

class Ordeal {
 public:
  Ordeal(const Trial& trial, Progress& progress, int report, std::chrono::seconds margin)
      : m_trial(trial),
        m_subject(trial.subject),
        m_limit(static_cast<unsigned>(margin.count() + trial.subject.limitSeconds)),
        m_faults(trial.faults()),
        m_progress(progress),
        m_report(report) {}

  void Run() {
    alarm(m_limit);
    RecordFaultsIn(&m_progress.record);
    if (m_subject.fresh) {
      SpawnedProcess server(&ServeForEver);
      std::vector<std::string> url;
      if (!server.WaitForLine(".+", &url)) {
        throw std::runtime_error("the server did not start");
      }
      StrikeAll([&](Fault& fault) { return StrikeInANewProcess(fault, url[0]); });
      return;
    }
    // The clients clean libcurl up as they go; this share keeps it.
    curl_global_init(CURL_GLOBAL_ALL);
    World world(m_trial.connection, m_trial.scenario);
    world.caller.Initialise();
    m_usual = LearnWhatIsUsual(world);
    world.LeadToPlainServer(!m_subject.needsTls);
    m_usualAfterwards = LearnWhatIsUsual(world);
    world.LeadToPlainServer(false);
    StrikeAll([&](Fault& fault) { return StrikeOnce(world, fault); });
  }

 private:
  // Each fault at each occasion, until `once` finds twice that there is none left: a transfer may
  // take a poll more or less.
  template <typename Once>
  void StrikeAll(Once once) {
    for (; m_progress.fault < m_faults.size(); ++m_progress.fault, m_progress.nth = 1) {
      while (once(*m_faults[m_progress.fault]) || once(*m_faults[m_progress.fault])) {
        ++m_progress.nth;
      }
    }
  }

  Observation Observe(World& world, Fault* fault = nullptr) {
    world.CleanUp();
    if (m_subject.prepare) {
      m_subject.prepare(world);
    }
    alarm(m_limit);  // ends the process unless the next run comes before
    return world.Observe(m_subject.run, fault, m_progress.nth);
  }

  // What the operation does without a fault. The first runs fill what libraries keep.
  Observation LearnWhatIsUsual(World& world) {
    Observation usual;
    for (int i = 0; i < 3; ++i) {
      usual = Observe(world);
    }
    const Observation again = Observe(world);
    const bool reaches =
        m_trial.scenario != Scenario::kNone && m_trial.scenario != Scenario::kRefused;
    if (usual.requests.size() != (reaches ? 1 : 0)) {
      throw std::runtime_error(m_subject.name + " sent " + std::to_string(usual.requests.size()) +
                               " requests");
    }
    if (!AreAlike(again, usual) || again.blocks != usual.blocks) {
      throw std::runtime_error(m_subject.name + " does not repeat: " + usual.answer + " and " +
                               again.answer);
    }
    return usual;
  }

  static bool AreAlike(const Observation& one, const Observation& other) {
    return one.answer == other.answer && one.requests == other.requests &&
           one.files == other.files && one.output == other.output && one.log == other.log &&
           one.descriptorLeft == other.descriptorLeft;
  }

  // One run with the fault at the present occasion; false when there is no such occasion.
  bool StrikeOnce(World& world, Fault& fault) {
    const Observation seen = Observe(world, &fault);
    if (!fault.Struck()) {
      return false;
    }
    Verdict verdict = Judge(m_subject, world, fault, m_usual, seen);
    if (verdict.outcome != Outcome::kBad && !verdict.keepsMemory && seen.blocks > m_usual.blocks &&
        Leaks(world, fault)) {
      verdict = {Outcome::kBad,
                 "it lost " + std::to_string(seen.blocks - m_usual.blocks) + " blocks of memory"};
    }
    Count(verdict);
    world.LeadToPlainServer(!m_subject.needsTls);  // a handshake costs ten times the rest
    const Observation after = Observe(world);
    world.LeadToPlainServer(false);
    if (!AreAlike(after, m_usualAfterwards)) {
      Count({Outcome::kBad, "and then the object answered \"" + after.answer + "\", not \"" +
                                m_usualAfterwards.answer + "\""});
    }
    return true;
  }

  bool Leaks(World& world, Fault& fault) {
    for (int i = 0; i < kRepeats; ++i) {
      if (Observe(world, &fault).blocks <= m_usual.blocks || !fault.Struck()) {
        return false;
      }
    }
    return true;
  }

  // The same in a child: what is torn by a fault at start-up stays torn in its process.
  bool StrikeInANewProcess(Fault& fault, const std::string& url) {
    alarm(m_limit);
    SpawnedProcess child([&]() -> int { _exit(StrikeAtStart(fault, url) ? 1 : 0); });
    const ProcessResult result = child.Wait();
    if (result.signal != 0) {
      Count({Outcome::kBad, "signal " + std::to_string(result.signal)});
    }
    return result.exitStatus != 0;
  }

  bool StrikeAtStart(Fault& fault, const std::string& url) {
    World world(Connection::kPlain, m_trial.scenario);
    const Observation seen = Observe(world, &fault);
    m_usual = seen;
    m_usual.answer = "0";
    m_usual.log.clear();
    if (!fault.Struck()) {
      return false;
    }
    Verdict verdict = Judge(m_subject, world, fault, m_usual, seen);
    if (verdict.outcome == Outcome::kSame) {
      int status = 0;
      world.caller.general.Get(url, "", false, status);
      if (status != 200) {
        verdict = {Outcome::kBad, "it succeeded, and then no request came through"};
      }
    }
    Count(verdict);
    return true;
  }

  void Count(const Verdict& verdict) {
    switch (verdict.outcome) {
      case Outcome::kSame:
        ++m_progress.result.same;
        return;
      case Outcome::kFailure:
        ++m_progress.result.failed;
        return;
      case Outcome::kBadAlloc:
        ++m_progress.result.threw;
        return;
      case Outcome::kBad:
        CountBad(m_trial, m_progress, verdict.reason, m_report);
    }
  }

  const Trial& m_trial;
  const Subject& m_subject;
  const unsigned m_limit;  // of one run, in seconds
  const Faults m_faults;
  Progress& m_progress;
  const int m_report;
  Observation m_usual;
  Observation m_usualAfterwards;
};

// In a process of its own: the trial from where `progress` stands to its end.
void Run(const Trial& trial, Progress& progress, int report, std::chrono::seconds margin) {
  const int own = dup(report);  // standard error is captured
  try {
    Ordeal(trial, progress, own, margin).Run();
  } catch (const std::exception& failure) {
    ++progress.result.bad;
    (void)dprintf(own, "BAD: %s, %s: %s\n", trial.subject.name.c_str(), NameOf(trial.scenario),
                  failure.what());
  }
}

std::string EndOf(int status) {
  if (!WIFSIGNALED(status)) {
    return "it ended the process";
  }
  return WTERMSIG(status) == SIGALRM ? "it hung" : "signal " + std::to_string(WTERMSIG(status));
}

}  // namespace

std::vector<Result> RunAll(const std::vector<Trial>& trials, std::size_t atOnce, int report,
                           std::chrono::seconds margin) {
  if (trials.empty()) {
    return {};
  }
  const std::size_t size = trials.size() * sizeof(Progress);
  void* const memory =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  auto* const progress = static_cast<Progress*>(memory);
  std::uninitialized_default_construct_n(progress, trials.size());

  std::map<pid_t, std::size_t> running;
  const auto start = [&](std::size_t trial) {
    (void)std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
      throw std::runtime_error("cannot fork");
    }
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      Run(trials[trial], progress[trial], report, margin);
      _exit(0);
    }
    running[pid] = trial;
  };
  std::size_t next = 0;
  while (next < trials.size() || !running.empty()) {
    if (next < trials.size() && running.size() < atOnce) {
      start(next++);
      continue;
    }
    int status = 0;
    const pid_t ended = waitpid(-1, &status, 0);
    const std::size_t trial = running.at(ended);
    running.erase(ended);
    if (status != 0) {
      CountBad(trials[trial], progress[trial], EndOf(status), report);
      ++progress[trial].nth;
      start(trial);
    }
  }

  std::vector<Result> results;
  for (std::size_t i = 0; i < trials.size(); ++i) {
    results.push_back(progress[i].result);
  }
  munmap(memory, size);
  return results;
}

}  // namespace lumtest
